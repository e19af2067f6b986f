#include <foundation/storage/provider/error_code.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::errorCodeOfErrno;

TEST(ErrorCode, EverySystemErrorHasItsCode) {
    struct {
        int number;
        ErrorCode code;
    } const cases[] = {
        {ENOTEMPTY, ErrorCode::FolderNotEmpty},
        {EINVAL, ErrorCode::InvalidLocation},
        {EISDIR, ErrorCode::InvalidLocation},
        {ELOOP, ErrorCode::InvalidLocation},
        {ENAMETOOLONG, ErrorCode::InvalidLocation},
        {EACCES, ErrorCode::PermissionDenied},
        {EPERM, ErrorCode::PermissionDenied},
        {EEXIST, ErrorCode::ResourceAlreadyExists},
        {ENOENT, ErrorCode::ResourceNotFound},
        {ENOTDIR, ErrorCode::ResourceNotFound},
        {EFBIG, ErrorCode::FileTooLarge},
        {EBUSY, ErrorCode::ResourceInUse},
        {ETXTBSY, ErrorCode::ResourceInUse},
        {EROFS, ErrorCode::ReadOnlyProvider},
        {ENOSPC, ErrorCode::NoSpaceLeft},
        {EDQUOT, ErrorCode::NoSpaceLeft},
        {EIO, ErrorCode::IOError},
        {EXDEV, ErrorCode::UnsupportedOperation},
        {EOPNOTSUPP, ErrorCode::UnsupportedOperation},
        {0, ErrorCode::Unknown},
        {-1, ErrorCode::Unknown},
        {99999, ErrorCode::Unknown},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(errorCodeOfErrno(c.number), c.code) << c.number;
    }
}

TEST(ErrorCode, NumbersAndNamesAreFixed) {
    char const* const names[] = {
        "FolderNotEmpty",   "InvalidLocation", "PermissionDenied", "ResourceAlreadyExists",
        "ResourceNotFound", "FileTooLarge",    "ResourceInUse",    "ReadOnlyProvider",
        "NoSpaceLeft",      "IOError",         "InternalError",    "UnsupportedOperation",
        "Unknown",
    };
    for (unsigned number = 0; number < std::size(names); ++number) {
        std::ostringstream out;
        out << static_cast<ErrorCode>(number);
        EXPECT_EQ(out.str(), names[number]);
    }
    std::ostringstream out;
    out << static_cast<ErrorCode>(13);
    EXPECT_EQ(out.str(), "13");
}
