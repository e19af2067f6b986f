#include <foundation/storage/vfs/errors/detail/rethrow_as_vfs_exception.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/streams/io_exception.hpp>

#include <boost/exception/errinfo_errno.hpp>
#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>
#include <boost/exception_ptr.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using provider::StorageIRI;

StorageIRI const location(u"mem:/a");

template<class E>
void translate(E const& e) {
    try {
        throw e;
    } catch (...) {
        vfs::rethrowAsVfsException();
    }
}

provider::Exception providerException(std::uint32_t code) {
    return provider::Exception(static_cast<provider::ErrorCode>(code), location);
}

struct Mapping {
    std::uint32_t from;
    vfs::ErrorCode to;
};

class CodeMapping : public testing::TestWithParam<Mapping> {};

TEST_P(CodeMapping, ProviderExceptionBecomesTheSystemsWithTheProvidersLocation) {
    try {
        translate(providerException(GetParam().from));
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), GetParam().to);
        EXPECT_EQ(e.getLocation().toStorageIRI(), location);
        EXPECT_EQ(boost::get_error_info<boost::errinfo_nested_exception>(e), nullptr);
    }
}

TEST_P(CodeMapping, ByteStreamFailuresGoThroughTheSameTable) {
    auto const code = static_cast<provider::ErrorCode>(GetParam().from);
    try {
        translate(provider::ByteStreamSeekFailure("why", code));
        FAIL();
    } catch (vfs::IOSeekException const& e) {
        EXPECT_EQ(e.getErrorCode(), GetParam().to);
        EXPECT_EQ(std::string(e.what()).rfind("why", 0), 0U) << e.what();
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, CodeMapping,
    testing::Values(
        Mapping{0, vfs::ErrorCode::FolderNotEmpty}, Mapping{1, vfs::ErrorCode::InvalidLocation},
        Mapping{2, vfs::ErrorCode::PermissionDenied},
        Mapping{3, vfs::ErrorCode::ResourceAlreadyExists},
        Mapping{4, vfs::ErrorCode::ResourceNotFound}, Mapping{5, vfs::ErrorCode::FileTooLarge},
        Mapping{6, vfs::ErrorCode::ResourceInUse}, Mapping{7, vfs::ErrorCode::ReadOnlyProvider},
        Mapping{8, vfs::ErrorCode::NoSpaceLeft}, Mapping{9, vfs::ErrorCode::IOError},
        Mapping{10, vfs::ErrorCode::InternalError},
        Mapping{11, vfs::ErrorCode::UnsupportedOperation}, Mapping{12, vfs::ErrorCode::Unknown},
        Mapping{13, vfs::ErrorCode::Unknown}, Mapping{0xFFFFFFFF, vfs::ErrorCode::Unknown}));

TEST(Translation, ReasonsOfTheProviderAreKept) {
    try {
        translate(provider::Exception(provider::ErrorCode::IOError, location, "the disk is torn"));
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getReason(), "the disk is torn");
        EXPECT_EQ(std::unique_ptr<vfs::Exception const>(e.clone())->getReason(),
                  "the disk is torn");
        EXPECT_EQ(boost::get_error_info<boost::errinfo_nested_exception>(e), nullptr);
    }
}

TEST(Translation, WhereNoReasonIsToldThereIsNone) {
    try {
        translate(providerException(9));
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getReason(), "");
        using ReasonInfo = boost::error_info<vfs::TagReason, std::string>;
        EXPECT_EQ(boost::get_error_info<ReasonInfo>(e), nullptr);
    }
}

/// Counts how often its diagnostics are composed.
class TalkativeException : public provider::Exception {
  public:
    TalkativeException(std::uint32_t code, int& asked)
        : Exception(static_cast<provider::ErrorCode>(code), location),
          asked_(&asked) {}
    char const* what() const noexcept override {
        ++*asked_;
        return "talkative";
    }
    TalkativeException const* clone() const override { return new TalkativeException(*this); }

  private:
    int* asked_;
};

TEST(Translation, DiagnosticsAreComposedForTheCodesThatExplainNothing) {
    for (std::uint32_t const code : {10U, 12U}) {
        int asked = 0;
        EXPECT_THROW(translate(TalkativeException(code, asked)), vfs::Exception);
        EXPECT_GT(asked, 0) << code;
    }
    for (std::uint32_t const code : {0U, 4U, 9U, 11U, 13U}) {
        int asked = 0;
        EXPECT_THROW(translate(TalkativeException(code, asked)), vfs::Exception);
        EXPECT_EQ(asked, 0) << code;
    }
}

TEST(Translation, LocationWithoutAPathIsReportedInPlaceOfTheFailure) {
    EXPECT_THROW(
        translate(provider::Exception(provider::ErrorCode::IOError, StorageIRI(u"mem://host"))),
        vfs::InvalidIRIException);
}

template<class Provider, class System>
void expectCauseKept() {
    try {
        translate(Provider(location));
        FAIL();
    } catch (System const& e) {
        EXPECT_EQ(e.getLocation().toStorageIRI(), location);
        using CodeInfo = boost::error_info<vfs::TagErrorCode, vfs::ErrorCode>;
        EXPECT_EQ(boost::get_error_info<CodeInfo>(e), nullptr);
        auto const* cause = boost::get_error_info<boost::errinfo_nested_exception>(e);
        ASSERT_NE(cause, nullptr);
        try {
            boost::rethrow_exception(*cause);
        } catch (Provider const& original) {
            EXPECT_EQ(original.getStorageIRI(), location);
        }
    }
}

TEST(Translation, ChangeEventExceptionsKeepTheProvidersExceptionAsTheirCause) {
    expectCauseKept<provider::ChangeEventsNotSupportedException,
                    vfs::ChangeEventsNotSupportedException>();
    expectCauseKept<provider::ChangeEventsSubscriptionException,
                    vfs::ChangeEventsSubscriptionException>();
}

TEST(Translation, EachByteStreamFailureHasItsIOException) {
    auto const code = provider::ErrorCode::FileTooLarge;
    EXPECT_THROW(translate(provider::ByteStreamReadFailure("t", code)), vfs::IOReadException);
    EXPECT_THROW(translate(provider::ByteStreamWriteFailure("t", code)), vfs::IOWriteException);
    EXPECT_THROW(translate(provider::ByteStreamSeekFailure("t", code)), vfs::IOSeekException);
    EXPECT_THROW(translate(provider::ByteStreamCloseFailure("t", code)), vfs::IOCloseException);
}

TEST(Translation, ByteStreamFailureOfNoneOfTheFourContinuesUnchanged) {
    try {
        translate(provider::ByteStreamFailure("plain", provider::ErrorCode::IOError));
        FAIL();
    } catch (vfs::IOException const&) {
        FAIL() << "must stay the provider's";
    } catch (provider::ByteStreamFailure const& e) {
        EXPECT_STREQ(e.what(), "plain");
    }
}

TEST(Translation, EverythingElseContinuesUnchanged) {
    vfs::AbsoluteIRI const first(u"mem:/first");
    try {
        translate(vfs::Exception(vfs::ErrorCode::IOError, first));
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getLocation(), first);
    }
    EXPECT_THROW(translate(vfs::InvalidIRIException(u"x")), vfs::InvalidIRIException);
    EXPECT_THROW(translate(std::bad_alloc()), std::bad_alloc);
    EXPECT_THROW(translate(42), int);
}

TEST(Translation, OneStoredExceptionMayBeTranslatedOnManyThreads) {
    provider::Exception failure = providerException(12);
    failure << boost::errinfo_errno(5);
    auto const stored = std::make_exception_ptr(failure);
    std::vector<std::thread> threads;
    std::atomic<int> translated = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                try {
                    try {
                        std::rethrow_exception(stored);
                    } catch (...) {
                        vfs::rethrowAsVfsException();
                    }
                } catch (vfs::Exception const& e) {
                    translated += e.getErrorCode() == vfs::ErrorCode::Unknown;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(translated, 800);
}

} // namespace
