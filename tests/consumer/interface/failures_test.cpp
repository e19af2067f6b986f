#include <foundation/storage/vfs/errors/error_code.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

namespace {

namespace vfs = foundation::storage::vfs;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::ustring;

AbsoluteIRI const location(u"mem:/x");

TEST(ErrorCode, HasItsNumberAndItsText) {
    struct Row {
        ErrorCode code;
        std::uint32_t number;
        char const* text;
    };
    Row const rows[] = {
        {ErrorCode::FolderNotEmpty, 0, "ErrorCode::FolderNotEmpty"},
        {ErrorCode::InvalidLocation, 1, "ErrorCode::InvalidLocation"},
        {ErrorCode::PermissionDenied, 2, "ErrorCode::PermissionDenied"},
        {ErrorCode::ResourceAlreadyExists, 3, "ErrorCode::ResourceAlreadyExists"},
        {ErrorCode::ResourceNotFound, 4, "ErrorCode::ResourceNotFound"},
        {ErrorCode::ReadOnlyProvider, 5, "ErrorCode::ReadOnlyProvider"},
        {ErrorCode::FileTooLarge, 6, "ErrorCode::FileTooLarge"},
        {ErrorCode::ResourceInUse, 7, "ErrorCode::ResourceInUse"},
        {ErrorCode::NoSpaceLeft, 8, "ErrorCode::NoSpaceLeft"},
        {ErrorCode::IOError, 9, "ErrorCode::IOError"},
        {ErrorCode::InternalError, 10, "ErrorCode::InternalError"},
        {ErrorCode::UnsupportedOperation, 11, "ErrorCode::UnsupportedOperation"},
        {ErrorCode::Unknown, 12, "ErrorCode::Unknown"},
        {ErrorCode(13), 13, "Unhandled ErrorCode"},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(static_cast<std::uint32_t>(row.code), row.number);
        EXPECT_STREQ(errorCodeText(row.code), row.text);
        EXPECT_EQ(errorCodeUstring(row.code), ustring(row.text, row.text + std::strlen(row.text)));
        std::ostringstream out;
        out << row.code;
        EXPECT_EQ(out.str(), row.text);
    }
}

TEST(Exception, TellsCodeAndLocation) {
    vfs::Exception const failure(ErrorCode::IOError, location);
    EXPECT_EQ(failure.getErrorCode(), ErrorCode::IOError);
    EXPECT_EQ(failure.getLocation(), location);
    EXPECT_STREQ(failure.what(), "foundation::storage::vfs::Exception");
    EXPECT_EQ(failure.ToUstringImpl(), u"foundation::storage::vfs::Exception{Location=\"mem:/x\", "
                                       u"ErrorCode=\"ErrorCode::IOError\"}");
}

TEST(Exception, CarriesErrorInfosThatPrint) {
    vfs::Exception const failure(ErrorCode::IOError, location);
    using CodeInfo = boost::error_info<vfs::TagErrorCode, ErrorCode>;
    using LocationInfo = boost::error_info<vfs::TagAbsoluteIRI, AbsoluteIRI>;
    EXPECT_EQ(*boost::get_error_info<CodeInfo>(failure), ErrorCode::IOError);
    EXPECT_EQ(*boost::get_error_info<LocationInfo>(failure), location);
    std::string const text = boost::diagnostic_information(failure);
    EXPECT_NE(text.find("[foundation::storage::vfs::TagErrorCode*] = ErrorCode::IOError\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("[foundation::storage::vfs::TagAbsoluteIRI*] = mem:/x\n"),
              std::string::npos)
        << text;
}

TEST(Exception, IsClonedAndThrownAgainAsWhatItIs) {
    vfs::Exception const failure(ErrorCode::IOError, location);
    std::unique_ptr<vfs::Exception const> const clone(failure.clone());
    EXPECT_EQ(clone->getErrorCode(), ErrorCode::IOError);
    EXPECT_THROW(clone->rethrow(), vfs::Exception);
}

template<class Failure>
class ChangeEventsException : public testing::Test {};
using Failures =
    testing::Types<vfs::ChangeEventsNotSupportedException, vfs::ChangeEventsSubscriptionException>;
TYPED_TEST_SUITE(ChangeEventsException, Failures);

TYPED_TEST(ChangeEventsException, TellsItsLocationAndNoCode) {
    constexpr bool isRefusal = std::is_same_v<TypeParam, vfs::ChangeEventsNotSupportedException>;
    std::string const name = isRefusal
                                 ? "foundation::storage::vfs::ChangeEventsNotSupportedException"
                                 : "foundation::storage::vfs::ChangeEventsSubscriptionException";
    TypeParam const failure(location);
    EXPECT_EQ(failure.getLocation(), location);
    EXPECT_EQ(failure.what(), name);
    EXPECT_EQ(failure.ToUstringImpl(),
              ustring(name.begin(), name.end()) + u"{Location=\"mem:/x\"}");
    using CodeInfo = boost::error_info<vfs::TagErrorCode, ErrorCode>;
    EXPECT_EQ(boost::get_error_info<CodeInfo>(failure), nullptr);
    std::unique_ptr<TypeParam const> const clone(failure.clone());
    EXPECT_THROW(clone->rethrow(), TypeParam);
    static_assert(!std::is_base_of_v<vfs::Exception, TypeParam>);
    EXPECT_THROW(throw failure, foundation::core::except::IException);
}

} // namespace
