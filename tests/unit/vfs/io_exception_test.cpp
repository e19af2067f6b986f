#include <foundation/storage/vfs/streams/io_exception.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

namespace {

namespace vfs = foundation::storage::vfs;

template<class E>
class IOExceptionOf : public testing::Test {};

struct Read {
    using Type = vfs::IOReadException;
    static constexpr char const* name = "IOReadException";
};
struct Write {
    using Type = vfs::IOWriteException;
    static constexpr char const* name = "IOWriteException";
};
struct Seek {
    using Type = vfs::IOSeekException;
    static constexpr char const* name = "IOSeekException";
};
struct Close {
    using Type = vfs::IOCloseException;
    static constexpr char const* name = "IOCloseException";
};
using Kinds = testing::Types<Read, Write, Seek, Close>;
TYPED_TEST_SUITE(IOExceptionOf, Kinds);

TYPED_TEST(IOExceptionOf, CodeAloneGivesTheClassNameAsMessage) {
    typename TypeParam::Type const e(vfs::ErrorCode::FileTooLarge);
    EXPECT_EQ(std::string(e.what()).rfind(TypeParam::name, 0), 0U) << e.what();
    EXPECT_EQ(e.getErrorCode(), vfs::ErrorCode::FileTooLarge);
    EXPECT_EQ(e.code(), std::io_errc::stream);
}

TYPED_TEST(IOExceptionOf, MessageStandsAtTheStart) {
    typename TypeParam::Type const e("disk on fire", vfs::ErrorCode::IOError);
    EXPECT_EQ(std::string(e.what()).rfind("disk on fire", 0), 0U) << e.what();
}

TYPED_TEST(IOExceptionOf, CloneThrowsItsOwnKind) {
    using E = typename TypeParam::Type;
    std::unique_ptr<vfs::IOException const> clone;
    {
        E const e("text", vfs::ErrorCode::NoSpaceLeft);
        clone.reset(static_cast<vfs::IOException const&>(e).clone());
    }
    try {
        clone->rethrow();
        FAIL();
    } catch (E const& e) {
        EXPECT_EQ(e.getErrorCode(), vfs::ErrorCode::NoSpaceLeft);
        EXPECT_EQ(std::string(e.what()).rfind("text", 0), 0U);
    }
}

TYPED_TEST(IOExceptionOf, IsAStreamFailureAndNotTheSystemsException) {
    using E = typename TypeParam::Type;
    static_assert(std::is_base_of_v<std::ios_base::failure, E>);
    static_assert(std::is_base_of_v<foundation::core::except::IInternalException, E>);
    static_assert(!std::is_base_of_v<vfs::Exception, E>);
    static_assert(std::is_abstract_v<vfs::IOException>);
    E const e(vfs::ErrorCode::IOError);
    foundation::core::except::IException const& root = e;
    EXPECT_EQ(std::string(root.what()), e.what());
    EXPECT_EQ(root.ToUstringImpl(), fl::i18n::to_ustring(e.what()));
}

} // namespace
