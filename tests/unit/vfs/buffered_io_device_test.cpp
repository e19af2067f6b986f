#include <foundation/storage/vfs/streams/buffered_io_device.hpp>

#include "fake_provider.hpp"
#include "fake_stream.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace vfs_test;
using provider::ByteStreamCloseFailure;
using provider::ByteStreamOpenOptions;
using provider::ByteStreamReadFailure;
using provider::ByteStreamWriteFailure;
using vfs::AbsoluteIRI;
using vfs::BufferedIODevice;
using vfs::ErrorCode;
using Calls = std::vector<std::string>;

class BufferedIODeviceTest : public testing::Test {
  protected:
    BufferedIODeviceTest() {
        storage.fake->onOpenReadOnlyStream = [this](StorageIRI const&) {
            return std::make_unique<FakeStream>(script);
        };
        storage.fake->onOpenStream = [this](StorageIRI const&, ByteStreamOpenOptions const&) {
            return std::make_unique<FakeStream>(script);
        };
    }

    FakeStorage storage;
    std::shared_ptr<StreamScript> script = std::make_shared<StreamScript>();
    vfs::File file{AbsoluteIRI(u"mem:/f"), storage.reference};
    std::vector<char> buffer = std::vector<char>(300000);
};

template<class Failure, class Operation>
ErrorCode codeOfIO(Operation operation) {
    try {
        operation();
    } catch (Failure const& e) {
        return e.getErrorCode();
    }
    throw std::logic_error("nothing was thrown");
}

TEST_F(BufferedIODeviceTest, BuffersNothingBeforeItIsUsed) {
    BufferedIODevice const device(file);
    EXPECT_TRUE(device.is_open());
    EXPECT_TRUE(script->calls.empty());
}

TEST_F(BufferedIODeviceTest, ReadOfNothingIsTheEnd) {
    script->content = "abc";
    BufferedIODevice const device(file);
    EXPECT_EQ(device.read(buffer.data(), 0), -1);
}

TEST_F(BufferedIODeviceTest, ShortFileGivesWhatItHasAndThenTheEnd) {
    script->content = "0123456789";
    BufferedIODevice const device(file);
    EXPECT_EQ(device.read(buffer.data(), 100), 10);
    EXPECT_EQ(std::string(buffer.data(), 10), "0123456789");
    EXPECT_EQ(device.read(buffer.data(), 100), -1);
}

TEST_F(BufferedIODeviceTest, LargeReadLoopsOverRefills) {
    script->content.assign(1000000, 'x');
    BufferedIODevice const device(file);
    EXPECT_EQ(device.read(buffer.data(), 200000), 200000);
    EXPECT_EQ(script->calls, (Calls{"read 131072", "read 131072"}));
}

TEST_F(BufferedIODeviceTest, SmallWritesReachTheDeviceAsOneAtClose) {
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(device.write("0123456789", 10), 10);
    }
    EXPECT_TRUE(script->calls.empty());
    device.close();
    EXPECT_FALSE(device.is_open());
    EXPECT_EQ(script->calls, (Calls{"write 1000", "close"}));
}

TEST_F(BufferedIODeviceTest, FullBufferIsHandedOverWhole) {
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    EXPECT_EQ(device.write(buffer.data(), 131076), 131076);
    EXPECT_EQ(script->count("write"), 0) << "an exact fill waits for the next byte";
    EXPECT_EQ(device.write("x", 1), 1);
    EXPECT_EQ(script->calls, Calls{"write 131076"});
    device.close();
    EXPECT_EQ(script->content.size(), 131077U);
}

TEST_F(BufferedIODeviceTest, FailureOfAForcedFlushSurfacesFromTheWrite) {
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    script->onWrite = [] {
        throw ByteStreamWriteFailure("full", provider::ErrorCode::NoSpaceLeft);
    };
    EXPECT_EQ(codeOfIO<vfs::IOWriteException>([&] { device.write(buffer.data(), 200000); }),
              ErrorCode::NoSpaceLeft);
}

TEST_F(BufferedIODeviceTest, TellDropsWhatWasReadAhead) {
    script->content.assign(500000, 'x');
    BufferedIODevice const device(file);
    EXPECT_EQ(device.read(buffer.data(), 1), 1);
    EXPECT_EQ(device.tell(), 1);
    EXPECT_EQ(device.read(buffer.data(), 1), 1);
    EXPECT_EQ(script->count("read"), 2);
    EXPECT_EQ(script->count("seek"), 1);
}

TEST_F(BufferedIODeviceTest, SeeksFromStartPositionAndEnd) {
    script->content = "0123456789";
    BufferedIODevice const device(file);
    EXPECT_EQ(device.seek(4, std::ios_base::beg), 4);
    EXPECT_EQ(device.read(buffer.data(), 1), 1);
    EXPECT_EQ(buffer[0], '4');
    EXPECT_EQ(device.seek(2, std::ios_base::cur), 7);
    EXPECT_EQ(device.seek(-1, std::ios_base::end), 9);
    EXPECT_EQ(device.read(buffer.data(), 5), 1);
    EXPECT_EQ(buffer[0], '9');
}

TEST_F(BufferedIODeviceTest, SeekFlushesPendingOutput) {
    BufferedIODevice const device(file, ByteStreamOpenOptions{});
    device.write("abc", 3);
    EXPECT_EQ(device.seek(0, std::ios_base::beg), 0);
    EXPECT_EQ(script->content, "abc");
}

TEST_F(BufferedIODeviceTest, FailedFlushInSeekIsNotReported) {
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    device.write("abc", 3);
    script->onWrite = [] {
        throw ByteStreamWriteFailure("full", provider::ErrorCode::NoSpaceLeft);
    };
    EXPECT_EQ(device.seek(0, std::ios_base::beg), 0);
    script->onWrite = nullptr;
    device.close();
    EXPECT_EQ(script->content, "") << "the pending bytes went with the buffer";
}

TEST_F(BufferedIODeviceTest, WriteAfterReadGoesWhereTheReaderStood) {
    script->content = "0123456789";
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    EXPECT_EQ(device.read(buffer.data(), 3), 3);
    EXPECT_EQ(device.write("XY", 2), 2);
    device.close();
    EXPECT_EQ(script->content, "012XY56789");
}

TEST_F(BufferedIODeviceTest, ReadAfterWriteWritesOutFirstAndReportsThat) {
    script->content = "0123456789";
    BufferedIODevice const device(file, ByteStreamOpenOptions{});
    device.write("AB", 2);
    EXPECT_EQ(device.read(buffer.data(), 2), 2);
    EXPECT_EQ(std::string(buffer.data(), 2), "23");
    EXPECT_EQ(script->content, "AB23456789");

    device.write("CD", 2);
    script->onWrite = [] {
        throw ByteStreamWriteFailure("full", provider::ErrorCode::NoSpaceLeft);
    };
    EXPECT_EQ(codeOfIO<vfs::IOWriteException>([&] { device.read(buffer.data(), 2); }),
              ErrorCode::NoSpaceLeft);
}

TEST_F(BufferedIODeviceTest, ClosingTwiceIsHarmless) {
    BufferedIODevice device(file);
    device.close();
    device.close();
    EXPECT_FALSE(device.is_open());
    EXPECT_EQ(script->count("close"), 1);
}

TEST_F(BufferedIODeviceTest, FailedCloseReachesTheDeviceOnce) {
    BufferedIODevice device(file);
    script->onClose = [] {
        throw ByteStreamCloseFailure("lost", provider::ErrorCode::FileTooLarge);
    };
    EXPECT_EQ(codeOfIO<vfs::IOCloseException>([&] { device.close(); }), ErrorCode::FileTooLarge);
    EXPECT_TRUE(device.is_open());
    EXPECT_EQ(script->count("close"), 1);
    device.close();
    EXPECT_FALSE(device.is_open());
    EXPECT_EQ(script->count("close"), 1);
}

TEST_F(BufferedIODeviceTest, DestructorDropsAFailedCloseAndTriesOnce) {
    script->onClose = [] { throw ByteStreamCloseFailure("lost", provider::ErrorCode::IOError); };
    { BufferedIODevice const device(file); }
    EXPECT_EQ(script->count("close"), 1);
    EXPECT_TRUE(script->destroyed);
}

TEST_F(BufferedIODeviceTest, AfterAFailedWriteAndCloseNothingIsWrittenAgain) {
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    device.write("abc", 3);
    script->onWrite = [] {
        throw ByteStreamWriteFailure("full", provider::ErrorCode::NoSpaceLeft);
    };
    script->onClose = [] {
        throw ByteStreamCloseFailure("lost", provider::ErrorCode::NoSpaceLeft);
    };
    EXPECT_THROW(device.close(), vfs::IOCloseException);
    long const writes = script->count("write");
    script->onWrite = nullptr;
    device.close();
    EXPECT_EQ(script->count("write"), writes);
    EXPECT_EQ(script->content, "");
}

TEST_F(BufferedIODeviceTest, CloseReportsTheDevicesCloseAndNotTheFlush) {
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    device.write("abc", 3);
    script->onWrite = [] {
        throw ByteStreamWriteFailure("full", provider::ErrorCode::NoSpaceLeft);
    };
    device.close();
    EXPECT_FALSE(device.is_open());
}

TEST_F(BufferedIODeviceTest, FailureOutsideTheFamilyBecomesTheOperationsOwn) {
    script->content = "abc";
    script->onRead = [] { fail(2, StorageIRI(u"mem:/f")); };
    BufferedIODevice const device(file, ByteStreamOpenOptions{});
    EXPECT_EQ(codeOfIO<vfs::IOReadException>([&] { device.read(buffer.data(), 1); }),
              ErrorCode::IOError);
    script->onRead = [] {
        throw ByteStreamReadFailure("bad sector", provider::ErrorCode::FileTooLarge);
    };
    EXPECT_EQ(codeOfIO<vfs::IOReadException>([&] { device.read(buffer.data(), 1); }),
              ErrorCode::FileTooLarge);
    script->onSeek = [] { throw 42; };
    EXPECT_EQ(codeOfIO<vfs::IOSeekException>([&] { device.tell(); }), ErrorCode::IOError);
    script->onClose = [] { fail(2, StorageIRI(u"mem:/f")); };
    BufferedIODevice closing(file);
    EXPECT_EQ(codeOfIO<vfs::IOCloseException>([&] { closing.close(); }), ErrorCode::IOError);
}

TEST_F(BufferedIODeviceTest, ClosedDeviceIsNoticedAtTheFirstUse) {
    vfs::IODevice raw(file);
    raw.close();
    BufferedIODevice const device(raw);
    EXPECT_EQ(codeOfIO<vfs::IOReadException>([&] { device.read(buffer.data(), 1); }),
              ErrorCode::IOError);
}

TEST_F(BufferedIODeviceTest, SharesTheStreamOfADeviceGivenToIt) {
    script->content = "0123456789";
    vfs::IODevice const raw(file);
    BufferedIODevice const device(raw);
    EXPECT_EQ(device.read(buffer.data(), 1), 1);
    EXPECT_EQ(raw.tell(), 10) << "the buffer has read ahead";
}

TEST_F(BufferedIODeviceTest, CannotExistWithoutAStream) {
    storage.fake->onOpenReadOnlyStream =
        [](StorageIRI const& l) -> std::unique_ptr<provider::ByteStream> { fail(4, l); };
    EXPECT_EQ(codeOf([&] { BufferedIODevice{file}; }), ErrorCode::ResourceNotFound);
}

TEST_F(BufferedIODeviceTest, DeviceThatReportsTheEndByNothingReadIsAtItsEnd) {
    script->atEnd = 0;
    script->content.assign(131072 + 10, 'x');
    BufferedIODevice const device(file);
    EXPECT_EQ(device.read(buffer.data(), 200000), 131072 + 10);
    EXPECT_EQ(device.read(buffer.data(), 10), -1);
}

TEST_F(BufferedIODeviceTest, OptionsArriveAtTheProvider) {
    ByteStreamOpenOptions options;
    options.access = provider::ByteStreamAccess::ReadWrite;
    options.creation = provider::ByteStreamCreation::OpenExisting;
    options.withoutTruncate = 1;
    options.withoutAppend = 0;
    BufferedIODevice const device(file, options);
    EXPECT_EQ(storage.fake->log(), Calls{"openStream mem:/f 1 1 1 0"});
}

TEST_F(BufferedIODeviceTest, ShortWritesOfTheDeviceLoseAndRepeatNothing) {
    script->takesAtMost = 400;
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    std::string expected;
    for (int i = 0; i < 200000; ++i) {
        expected += static_cast<char>('a' + i % 26);
    }
    EXPECT_EQ(device.write(expected.data(), 200000), 200000);
    device.close();
    EXPECT_EQ(script->content, expected);
}

TEST_F(BufferedIODeviceTest, DeviceThatTakesNothingFailsTheWrite) {
    script->takesAtMost = 0;
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    EXPECT_EQ(codeOfIO<vfs::IOWriteException>([&] { device.write(buffer.data(), 200000); }),
              ErrorCode::IOError);
}

TEST_F(BufferedIODeviceTest, FailureOutsideTheFamilyInAWriteBecomesAWriteException) {
    script->onWrite = [] { fail(2, StorageIRI(u"mem:/f")); };
    BufferedIODevice const device(file, ByteStreamOpenOptions{});
    EXPECT_EQ(codeOfIO<vfs::IOWriteException>([&] { device.write(buffer.data(), 200000); }),
              ErrorCode::IOError);
}

TEST_F(BufferedIODeviceTest, FailedSeekLeavesAWriteAfterAReadAsItIs) {
    script->content.assign(1000, 'x');
    BufferedIODevice const device(file, ByteStreamOpenOptions{});
    device.read(buffer.data(), 1);
    script->onSeek = [] {
        throw provider::ByteStreamSeekFailure("where", provider::ErrorCode::FileTooLarge);
    };
    EXPECT_EQ(codeOfIO<vfs::IOSeekException>([&] { device.write("a", 1); }),
              ErrorCode::FileTooLarge);
}

TEST_F(BufferedIODeviceTest, DestructorAfterAFailedCloseReachesTheDeviceNoMore) {
    script->onClose = [] { throw ByteStreamCloseFailure("lost", provider::ErrorCode::IOError); };
    {
        BufferedIODevice device(file);
        EXPECT_THROW(device.close(), vfs::IOCloseException);
    }
    EXPECT_EQ(script->count("close"), 1);
    EXPECT_TRUE(script->destroyed);
}

TEST_F(BufferedIODeviceTest, UseAfterCloseTouchesNothingOfTheOldBuffer) {
    script->content.assign(1000, 'x');
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    device.read(buffer.data(), 1);
    device.close();
    auto const calls = script->calls.size();
    EXPECT_EQ(device.read(buffer.data(), 1), -1);
    EXPECT_EQ(device.write("a", 1), 0);
    EXPECT_EQ(device.tell(), -1);
    EXPECT_EQ(script->calls.size(), calls);
}

TEST_F(BufferedIODeviceTest, UseAfterAFailedCloseReachesNothing) {
    script->content.assign(1000, 'x');
    script->onClose = [] { throw ByteStreamCloseFailure("lost", provider::ErrorCode::IOError); };
    BufferedIODevice device(file, ByteStreamOpenOptions{});
    EXPECT_THROW(device.close(), vfs::IOCloseException);
    auto const calls = script->calls.size();
    EXPECT_EQ(device.read(buffer.data(), 1), -1);
    EXPECT_EQ(device.write("a", 1), 0);
    device.close();
    EXPECT_EQ(script->calls.size(), calls);
}

} // namespace
