#include <foundation/storage/vfs/resources/flush_filesystem.hpp>

#include "fake_provider.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::extensions::flushFilesystem;

class FlushableProvider : public FakeProvider, public provider::extensions::IFlushableFilesystem {
  public:
    void flushFilesystem() override {
        ++flushed;
        if (onFlush) {
            onFlush();
        }
    }
    int flushed = 0;
    std::function<void()> onFlush;
};

/// A system that cannot give a provider.
class ProviderlessSystem : public vfs::StorageSystem {
  public:
    explicit ProviderlessSystem(std::function<void(StorageIRI const&)> thrower)
        : thrower_(std::move(thrower)) {}
    std::shared_ptr<provider::IProvider> buildProvider(StorageIRI const& location) const override {
        thrower_(location);
        return nullptr;
    }

  private:
    std::function<void(StorageIRI const&)> thrower_;
};

class FlushFilesystem : public testing::Test {
  protected:
    void flush() const { flushFilesystem(AbsoluteIRI(u"mem:/a/b"), reference); }

    std::shared_ptr<FlushableProvider> flushable = std::make_shared<FlushableProvider>();
    std::shared_ptr<OneProviderSystem> system = std::make_shared<OneProviderSystem>(flushable);
    vfs::StorageSystemReference reference{std::weak_ptr<vfs::StorageSystem>(system)};
};

TEST_F(FlushFilesystem, FlushesTheProviderOfTheLocation) {
    flush();
    EXPECT_EQ(flushable->flushed, 1);
    EXPECT_EQ(system->built, 1);
    EXPECT_TRUE(flushable->calls().empty()) << "the item itself is not asked";
}

TEST_F(FlushFilesystem, DoesNothingWhereTheProviderKeepsNothingBack) {
    FakeStorage plain;
    EXPECT_NO_THROW(flushFilesystem(AbsoluteIRI(u"mem:/a"), plain.reference));
    EXPECT_EQ(plain.system->built, 1);
    EXPECT_TRUE(plain.fake->calls().empty());
}

TEST_F(FlushFilesystem, FailureToFlushIsTranslatedWithTheLocationThatItNames) {
    flushable->onFlush = [] { fail(8, StorageIRI(u"mem:/named")); };
    try {
        flush();
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::NoSpaceLeft);
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/named"));
    }
}

TEST_F(FlushFilesystem, OnlyProviderExceptionsAreTranslated) {
    flushable->onFlush = [] {
        throw provider::ChangeEventsNotSupportedException(StorageIRI(u"mem:/a"));
    };
    EXPECT_THROW(flush(), provider::ChangeEventsNotSupportedException);
    flushable->onFlush = [] { throw 42; };
    EXPECT_THROW(flush(), int);
}

TEST_F(FlushFilesystem, FailureToGetAProviderIsTranslated) {
    auto const none = std::make_shared<ProviderlessSystem>([](StorageIRI const& l) { fail(2, l); });
    vfs::StorageSystemReference const noneReference{std::weak_ptr<vfs::StorageSystem>(none)};
    EXPECT_EQ(codeOf([&] { flushFilesystem(AbsoluteIRI(u"mem:/a"), noneReference); }),
              ErrorCode::PermissionDenied);
    system.reset();
    EXPECT_THROW(flush(), std::runtime_error) << "the system is gone";
}

} // namespace
