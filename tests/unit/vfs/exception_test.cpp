#include <foundation/storage/vfs/errors/exception.hpp>

#include "fake_provider.hpp"

#include <fl/i18n/conversion.hpp>

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;

AbsoluteIRI const location(u"mem:/a b");

struct CodeText {
    std::uint32_t value;
    char const* text;
};

class ErrorCodeText : public testing::TestWithParam<CodeText> {};

TEST_P(ErrorCodeText, IsTypeAndMember) {
    auto const code = static_cast<ErrorCode>(GetParam().value);
    std::ostringstream out;
    out << code;
    EXPECT_EQ(out.str(), GetParam().text);
    EXPECT_STREQ(vfs::errorCodeText(code), GetParam().text);
    EXPECT_EQ(vfs::errorCodeUstring(code), fl::i18n::to_ustring(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    All, ErrorCodeText,
    testing::Values(
        CodeText{0, "ErrorCode::FolderNotEmpty"}, CodeText{1, "ErrorCode::InvalidLocation"},
        CodeText{2, "ErrorCode::PermissionDenied"}, CodeText{3, "ErrorCode::ResourceAlreadyExists"},
        CodeText{4, "ErrorCode::ResourceNotFound"}, CodeText{5, "ErrorCode::ReadOnlyProvider"},
        CodeText{6, "ErrorCode::FileTooLarge"}, CodeText{7, "ErrorCode::ResourceInUse"},
        CodeText{8, "ErrorCode::NoSpaceLeft"}, CodeText{9, "ErrorCode::IOError"},
        CodeText{10, "ErrorCode::InternalError"}, CodeText{11, "ErrorCode::UnsupportedOperation"},
        CodeText{12, "ErrorCode::Unknown"}, CodeText{13, "Unhandled ErrorCode"},
        CodeText{0xFFFFFFFF, "Unhandled ErrorCode"}));

TEST(Exception, WhatIsTheClassNameAndTheTextHoldsTheRest) {
    vfs::Exception const e(ErrorCode::ResourceNotFound, location);
    EXPECT_STREQ(e.what(), "foundation::storage::vfs::Exception");
    EXPECT_EQ(e.getErrorCode(), ErrorCode::ResourceNotFound);
    EXPECT_EQ(e.getLocation(), location);
    EXPECT_EQ(e.ToUstringImpl(), u"foundation::storage::vfs::Exception{Location=\"mem:/a b\", "
                                 u"ErrorCode=\"ErrorCode::ResourceNotFound\"}");
}

TEST(Exception, DiagnosticsShowBothErrorInfos) {
    std::string const text =
        boost::diagnostic_information(vfs::Exception(ErrorCode::IOError, location));
    EXPECT_NE(text.find("[foundation::storage::vfs::TagErrorCode*] = ErrorCode::IOError\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("[foundation::storage::vfs::TagAbsoluteIRI*] = mem:/a b\n"),
              std::string::npos)
        << text;
}

TEST(Exception, CloneSharesTheContainerOfErrorInfosAndKeepsTheThrowSite) {
    using CodeInfo = boost::error_info<vfs::TagErrorCode, ErrorCode>;
    vfs::Exception e(ErrorCode::NoSpaceLeft, location);
    e << boost::throw_file("a.cpp") << boost::throw_line(7);
    std::unique_ptr<vfs::Exception const> const clone(e.clone());
    EXPECT_EQ(boost::get_error_info<CodeInfo>(*clone), boost::get_error_info<CodeInfo>(e));
    EXPECT_STREQ(*boost::get_error_info<boost::throw_file>(*clone), "a.cpp");
    EXPECT_EQ(*boost::get_error_info<boost::throw_line>(*clone), 7);
}

TEST(Exception, CloneOutlivesItsSourceAndThrowsItself) {
    std::unique_ptr<boost::exception_detail::clone_base const> clone;
    {
        vfs::Exception const e(ErrorCode::NoSpaceLeft, location);
        clone.reset(e.clone());
    }
    try {
        clone->rethrow();
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::NoSpaceLeft);
        EXPECT_EQ(e.getLocation(), location);
        auto const* info =
            boost::get_error_info<boost::error_info<vfs::TagErrorCode, ErrorCode>>(e);
        EXPECT_EQ(*info, ErrorCode::NoSpaceLeft);
    }
}

TEST(Exception, TheFamiliesAreUnrelatedButForTheRoots) {
    using foundation::core::except::IException;
    static_assert(!std::is_base_of_v<vfs::Exception, vfs::ChangeEventsNotSupportedException>);
    static_assert(!std::is_base_of_v<vfs::Exception, vfs::ChangeEventsSubscriptionException>);
    static_assert(std::is_base_of_v<IException, vfs::ChangeEventsNotSupportedException>);
    static_assert(std::is_base_of_v<std::exception, vfs::ChangeEventsNotSupportedException>);
    EXPECT_THROW(throw vfs::Exception(ErrorCode::IOError, location), IException);
    EXPECT_THROW(throw vfs::Exception(ErrorCode::IOError, location), std::exception);
}

template<class E>
class ChangeEventsException : public testing::Test {};

struct NotSupported {
    using Type = vfs::ChangeEventsNotSupportedException;
    static constexpr char const* name =
        "foundation::storage::vfs::ChangeEventsNotSupportedException";
};
struct Subscription {
    using Type = vfs::ChangeEventsSubscriptionException;
    static constexpr char const* name =
        "foundation::storage::vfs::ChangeEventsSubscriptionException";
};
using ChangeEventsExceptions = testing::Types<NotSupported, Subscription>;
TYPED_TEST_SUITE(ChangeEventsException, ChangeEventsExceptions);

TYPED_TEST(ChangeEventsException, CarriesALocationAndNoCode) {
    using E = typename TypeParam::Type;
    E const e(location);
    EXPECT_STREQ(e.what(), TypeParam::name);
    EXPECT_EQ(e.getLocation(), location);
    EXPECT_EQ(e.ToUstringImpl(),
              fl::i18n::to_ustring(TypeParam::name) + u"{Location=\"mem:/a b\"}");
    using CodeInfo = boost::error_info<vfs::TagErrorCode, ErrorCode>;
    EXPECT_EQ(boost::get_error_info<CodeInfo>(e), nullptr);
    std::unique_ptr<E const> const clone(e.clone());
    EXPECT_THROW(clone->rethrow(), E);
}

} // namespace
