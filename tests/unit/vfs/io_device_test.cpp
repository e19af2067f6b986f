#include <foundation/storage/vfs/streams/io_device.hpp>

#include "fake_provider.hpp"
#include "fake_stream.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

namespace {

using namespace vfs_test;
using provider::ByteStreamCloseFailure;
using provider::ByteStreamReadFailure;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::IODevice;

class IODeviceTest : public testing::Test {
  protected:
    IODeviceTest() {
        script->content = "0123456789";
        storage.fake->onOpenReadOnlyStream = [this](StorageIRI const&) {
            return std::make_unique<FakeStream>(script);
        };
        storage.fake->onOpenStream = [this](StorageIRI const&,
                                            provider::ByteStreamOpenOptions const&) {
            return std::make_unique<FakeStream>(script);
        };
    }

    FakeStorage storage;
    std::shared_ptr<StreamScript> script = std::make_shared<StreamScript>();
    vfs::File file{AbsoluteIRI(u"mem:/f"), storage.reference};
};

template<class Operation>
void expectClosed(Operation operation) {
    try {
        operation();
        FAIL();
    } catch (std::logic_error const& e) {
        EXPECT_EQ(typeid(e), typeid(std::logic_error));
        EXPECT_STREQ(e.what(), "Cannot operate on a closed IODevice.");
    }
}

TEST_F(IODeviceTest, ReadsWritesAndSeeks) {
    IODevice device(file, provider::ByteStreamOpenOptions{});
    char buffer[16];
    EXPECT_EQ(device.read(buffer, 4), 4);
    EXPECT_EQ(device.tell(), 4);
    EXPECT_EQ(device.seek(-1, std::ios_base::end), 9);
    EXPECT_EQ(device.write("XY", 2), 2);
    EXPECT_EQ(device.read(buffer, 1), -1);
    EXPECT_EQ(script->content, "012345678XY");
    device.close();
    EXPECT_FALSE(device.is_open());
    EXPECT_EQ(storage.fake->log(), std::vector<std::string>{"openStream mem:/f 0 0 0 1"});
}

TEST_F(IODeviceTest, OpensForReadingUnlessToldOtherwise) {
    IODevice const device(file);
    EXPECT_TRUE(device.is_open());
    EXPECT_EQ(storage.fake->calls(), std::vector<std::string>{"openReadOnlyStream"});
}

TEST_F(IODeviceTest, EveryOperationOnAClosedDeviceIsALogicError) {
    IODevice device(file);
    device.close();
    char c;
    expectClosed([&] { device.read(&c, 1); });
    expectClosed([&] { device.write(&c, 1); });
    expectClosed([&] { device.seek(0, std::ios_base::beg); });
    expectClosed([&] { device.tell(); });
    expectClosed([&] { device.close(); });
    EXPECT_FALSE(device.is_open());
}

TEST_F(IODeviceTest, FailedCloseLeavesItOpenAndCanBeTriedAgain) {
    IODevice device(file);
    int attempts = 0;
    script->onClose = [&] {
        if (++attempts == 1) {
            throw ByteStreamCloseFailure("lost", provider::ErrorCode::NoSpaceLeft);
        }
    };
    try {
        device.close();
        FAIL();
    } catch (vfs::IOCloseException const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::NoSpaceLeft);
    }
    EXPECT_TRUE(device.is_open());
    device.close();
    EXPECT_FALSE(device.is_open());
    EXPECT_EQ(attempts, 2);
}

TEST_F(IODeviceTest, CopiesShareTheStreamAndAreClosedEachByItself) {
    IODevice device(file);
    IODevice const copy = device;
    char buffer[4];
    EXPECT_EQ(device.read(buffer, 4), 4);
    EXPECT_EQ(copy.tell(), 4);
    device.close();
    EXPECT_TRUE(copy.is_open());
    EXPECT_EQ(copy.read(buffer, 1), 1) << "the provider's answer";
}

TEST_F(IODeviceTest, StreamEndsWithItsLastCopyAndIsNotClosedByIt) {
    { IODevice const device(file); }
    EXPECT_TRUE(script->destroyed);
    EXPECT_EQ(script->count("close"), 0);
}

TEST_F(IODeviceTest, ClassOfTheExceptionFollowsTheProvidersFailure) {
    IODevice const device(file);
    script->onRead = [] {
        throw ByteStreamReadFailure("too long", provider::ErrorCode::FileTooLarge);
    };
    char c;
    try {
        device.read(&c, 1);
        FAIL();
    } catch (vfs::IOReadException const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::FileTooLarge);
        EXPECT_EQ(std::string(e.what()).rfind("too long", 0), 0U) << e.what();
    }
    script->onRead = [] {
        throw provider::ByteStreamWriteFailure("flush", provider::ErrorCode::IOError);
    };
    EXPECT_THROW(device.read(&c, 1), vfs::IOWriteException);
    script->onSeek = [] {
        throw provider::ByteStreamSeekFailure("where", provider::ErrorCode::InvalidLocation);
    };
    EXPECT_THROW(device.tell(), vfs::IOSeekException);
}

TEST_F(IODeviceTest, OtherFailuresPassAsTheTranslatorLeavesThem) {
    IODevice const device(file);
    char c;
    script->onRead = [] {
        throw provider::ByteStreamFailure("plain", provider::ErrorCode::IOError);
    };
    EXPECT_THROW(device.read(&c, 1), provider::ByteStreamFailure);
    script->onWrite = [] { fail(8, StorageIRI(u"mem:/f")); };
    EXPECT_EQ(codeOf([&] { device.write(&c, 1); }), ErrorCode::NoSpaceLeft);
}

TEST_F(IODeviceTest, OptionsArriveAtTheProvider) {
    provider::ByteStreamOpenOptions options;
    options.access = provider::ByteStreamAccess::ReadWrite;
    options.creation = provider::ByteStreamCreation::OpenExisting;
    options.withoutTruncate = 1;
    options.withoutAppend = 0;
    IODevice const device(file, options);
    EXPECT_EQ(storage.fake->log(), std::vector<std::string>{"openStream mem:/f 1 1 1 0"});
}

TEST_F(IODeviceTest, StreamThatTakesLessIsOfferedTheRest) {
    script->takesAtMost = 3;
    IODevice const device(file, provider::ByteStreamOpenOptions{});
    EXPECT_EQ(device.write("abcdefgh", 8), 8);
    EXPECT_EQ(script->content, "abcdefgh89");
    EXPECT_EQ(script->calls, (std::vector<std::string>{"write 8", "write 5", "write 2"}));
    EXPECT_EQ(device.write("", 0), 0);

    script->takesAtMost = 0;
    EXPECT_THROW(device.write("a", 1), vfs::IOWriteException);
}

TEST_F(IODeviceTest, CannotExistWithoutAStream) {
    storage.fake->onOpenReadOnlyStream =
        [](StorageIRI const& l) -> std::unique_ptr<provider::ByteStream> { fail(4, l); };
    EXPECT_EQ(codeOf([&] { IODevice{file}; }), ErrorCode::ResourceNotFound);
    storage.fake->onOpenStream = [](StorageIRI const& l,
                                    auto const&) -> std::unique_ptr<provider::ByteStream> {
        fail(2, l);
    };
    EXPECT_EQ(codeOf([&] { IODevice(file, provider::ByteStreamOpenOptions{}); }),
              ErrorCode::PermissionDenied);
}

} // namespace
