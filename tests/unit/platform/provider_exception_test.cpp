#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

using namespace foundation::storage::provider;
using foundation::core::except::IException;
using foundation::core::except::IInternalException;

namespace {

StorageIRI const location(u"file:///a\xDCFF");

template<class E>
void expectCloned(E const& original) {
    std::unique_ptr<E const> const clone(original.clone());
    try {
        clone->rethrow();
        FAIL() << "nothing thrown";
    } catch (E const& e) {
        EXPECT_EQ(typeid(e), typeid(original));
        EXPECT_STREQ(e.what(), original.what());
    }
}

} // namespace

TEST(ProviderException, NamesItsClassCodeAndLocation) {
    Exception const e(ErrorCode::PermissionDenied, location);

    EXPECT_EQ(e.getErrorCode(), ErrorCode::PermissionDenied);
    EXPECT_EQ(e.getStorageIRI(), location);
    EXPECT_STREQ(e.what(), "foundation::storage::provider::Exception");
    EXPECT_STREQ(static_cast<std::exception const&>(e).what(), e.what());
    EXPECT_EQ(e.ToUstringImpl(), u"foundation::storage::provider::Exception{Location=\"file:///"
                                 u"a\xDCFF\", ErrorCode=\"PermissionDenied\"}");
    expectCloned(e);
}

TEST(ProviderException, TheEventExceptionsAreNoProviderExceptions) {
    static_assert(!std::is_base_of_v<Exception, ChangeEventsNotSupportedException>);
    static_assert(!std::is_base_of_v<Exception, ChangeEventsSubscriptionException>);
    ChangeEventsNotSupportedException const none(location);
    ChangeEventsSubscriptionException const failed(location);

    EXPECT_EQ(none.getStorageIRI(), location);
    EXPECT_EQ(failed.getStorageIRI(), location);
    EXPECT_STREQ(none.what(), "foundation::storage::provider::ChangeEventsNotSupportedException");
    EXPECT_STREQ(failed.what(), "foundation::storage::provider::ChangeEventsSubscriptionException");
    EXPECT_EQ(none.ToUstringImpl(), u"foundation::storage::provider::"
                                    u"ChangeEventsNotSupportedException{Location=\"file:///"
                                    u"a\xDCFF\"}");
    EXPECT_EQ(failed.ToUstringImpl(), u"foundation::storage::provider::"
                                      u"ChangeEventsSubscriptionException{Location=\"file:///"
                                      u"a\xDCFF\"}");
    expectCloned(none);
    expectCloned(failed);
}

TEST(ProviderException, AMalformedLocationIsAnInvalidArgument) {
    MalformedIRIException const e("what is wrong");

    EXPECT_STREQ(static_cast<std::invalid_argument const&>(e).what(), "what is wrong");
    EXPECT_STREQ(static_cast<IException const&>(e).what(), "what is wrong");
    EXPECT_EQ(e.ToUstringImpl(), u"what is wrong");
    expectCloned(e);
}

TEST(ByteStreamFailure, GivesItsTextAndCodeThroughEveryBase) {
    ByteStreamReadFailure const e("read: no device", ErrorCode::IOError);

    EXPECT_STREQ(e.what(), "read: no device");
    EXPECT_STREQ(static_cast<std::ios_base::failure const&>(e).what(), "read: no device");
    EXPECT_STREQ(static_cast<IInternalException const&>(e).what(), "read: no device");
    EXPECT_EQ(static_cast<ByteStreamFailure const&>(e).getErrorCode(), ErrorCode::IOError);
    EXPECT_EQ(e.ToUstringImpl(), u"read: no device");
}

TEST(ByteStreamFailure, EveryKindClonesAsItself) {
    expectCloned(ByteStreamFailure("any", ErrorCode::Unknown));
    expectCloned(ByteStreamReadFailure("read", ErrorCode::IOError));
    expectCloned(ByteStreamWriteFailure("write", ErrorCode::NoSpaceLeft));
    expectCloned(ByteStreamSeekFailure("seek", ErrorCode::IOError));
    expectCloned(ByteStreamCloseFailure("close", ErrorCode::IOError));
}
