#include "storage_test.hpp"

#include <cstring>

namespace {

using namespace consumer;
using vfs::BufferedIODevice;
using vfs::ErrorCode;
using vfs::File;
using vfs::IODevice;

provider::ByteStreamOpenOptions const updating{provider::ByteStreamAccess::ReadWrite,
                                               provider::ByteStreamCreation::OpenExisting, 1, 1};

class ByteStreams : public StorageTest {
  protected:
    File const f = fileWith(u"mem:/f", "abcdef");
};

/// What both devices do alike.
template<class Device>
class DeviceOf : public ByteStreams {};
using Devices = testing::Types<IODevice, BufferedIODevice>;
TYPED_TEST_SUITE(DeviceOf, Devices);

TYPED_TEST(DeviceOf, ReadsSeeksAndTells) {
    TypeParam device(this->f);
    EXPECT_TRUE(device.is_open());
    char bytes[3] = {};
    EXPECT_EQ(device.read(bytes, 2), 2);
    EXPECT_STREQ(bytes, "ab");
    EXPECT_EQ(device.tell(), 2);
    EXPECT_EQ(device.seek(-1, std::ios_base::end), 5);
    EXPECT_EQ(device.read(bytes, 2), 1);
    EXPECT_EQ(device.read(bytes, 2), -1);
    device.close();
    EXPECT_FALSE(device.is_open());
}

TYPED_TEST(DeviceOf, Writes) {
    TypeParam device(this->f, updating);
    EXPECT_EQ(device.write("xy", 2), 2);
    device.close();
    EXPECT_EQ(this->contentOf(this->f), "xycdef");
}

TEST_F(ByteStreams, BufferedDeviceIsMadeOfADevice) {
    IODevice const device(f);
    BufferedIODevice const buffered(device);
    char byte = 0;
    EXPECT_EQ(buffered.read(&byte, 1), 1);
    EXPECT_EQ(byte, 'a');
    EXPECT_EQ(device.tell(), 6) << "the buffer has read ahead";
}

TEST_F(ByteStreams, ClosedDeviceIsNoPlaceToRead) {
    IODevice device(f);
    device.close();
    char byte = 0;
    try {
        device.read(&byte, 1);
        FAIL() << "nothing was thrown";
    } catch (std::logic_error const& failure) {
        EXPECT_STREQ(failure.what(), "Cannot operate on a closed IODevice.");
    }
}

TEST_F(ByteStreams, FailureOfTheStreamIsOfTheSystemsFamily) {
    IODevice const device(f);
    EXPECT_THROW(device.write("x", 1), vfs::IOWriteException);
    EXPECT_THROW(device.seek(-1, std::ios_base::beg), std::ios_base::failure);
}

template<class Failure>
class IOExceptionOf : public testing::Test {};
using Failures = testing::Types<vfs::IOReadException, vfs::IOWriteException, vfs::IOSeekException,
                                vfs::IOCloseException>;
TYPED_TEST_SUITE(IOExceptionOf, Failures);

TYPED_TEST(IOExceptionOf, TellsItsMessageAndItsCode) {
    TypeParam const byCode(ErrorCode::NoSpaceLeft);
    EXPECT_EQ(byCode.getErrorCode(), ErrorCode::NoSpaceLeft);
    char const* const name = std::is_same_v<TypeParam, vfs::IOReadException>    ? "IOReadException"
                             : std::is_same_v<TypeParam, vfs::IOWriteException> ? "IOWriteException"
                             : std::is_same_v<TypeParam, vfs::IOSeekException>  ? "IOSeekException"
                                                                               : "IOCloseException";
    EXPECT_EQ(std::strncmp(byCode.what(), name, std::strlen(name)), 0) << byCode.what();

    TypeParam const said("the reason", ErrorCode::IOError);
    vfs::IOException const& failure = said;
    EXPECT_EQ(failure.getErrorCode(), ErrorCode::IOError);
    EXPECT_EQ(std::strncmp(failure.what(), "the reason", 10), 0) << failure.what();
    EXPECT_EQ(said.code(), std::io_errc::stream);
    std::unique_ptr<vfs::IOException const> const clone(failure.clone());
    EXPECT_THROW(clone->rethrow(), TypeParam);
    EXPECT_THROW(throw said, foundation::core::except::IInternalException);
}

TEST_F(ByteStreams, StreamsOpenReadWriteAndClose) {
    vfs::ofstream out;
    EXPECT_FALSE(out.is_open());
    out.open(file(u"mem:/g"));
    EXPECT_TRUE(out.is_open());
    out << "one two";
    EXPECT_TRUE(out.rdbuf()->is_complete());
    out.close();

    vfs::ifstream in;
    in.open(file(u"mem:/g"));
    std::string word;
    in >> word;
    EXPECT_EQ(word, "one");
    EXPECT_TRUE(in.rdbuf()->is_complete());
    in.close();
    EXPECT_FALSE(in.is_open());

    vfs::fstream both;
    both.open(file(u"mem:/g"));
    both >> word;
    both.seekp(0);
    both << "ONE";
    EXPECT_TRUE(both.rdbuf()->is_complete());
    both.close();
    EXPECT_FALSE(both.is_open());
    EXPECT_EQ(contentOf(file(u"mem:/g")), "ONE two");
}

TEST_F(ByteStreams, StreamsAreMadeOpenByMode) {
    vfs::fstream both(f, std::ios_base::in | std::ios_base::out | std::ios_base::ate);
    both << "g";
    both.close();
    vfs::ofstream out(f, std::ios_base::app);
    out << "h";
    out.close();
    vfs::ifstream in(f, std::ios_base::in);
    std::string word;
    in >> word;
    EXPECT_EQ(word, "abcdefgh");
}

TEST_F(ByteStreams, StreamThatCannotOpenThrows) {
    EXPECT_EQ(codeOf([&] { vfs::ifstream(file(u"mem:/none")); }), ErrorCode::ResourceNotFound);
    try {
        vfs::fstream(f, std::ios_base::openmode{});
        FAIL() << "nothing was thrown";
    } catch (std::runtime_error const& failure) {
        EXPECT_STREQ(failure.what(), "toByteStreamCreate called with bad openmode");
    }
}

TEST_F(ByteStreams, SecondOpenAndSecondCloseSetFailbit) {
    vfs::ifstream in(f);
    in.open(file(u"mem:/none"));
    EXPECT_TRUE(in.fail() && in.is_open());
    in.clear();
    in.close();
    EXPECT_FALSE(in.fail());
    in.close();
    EXPECT_TRUE(in.fail());
}

} // namespace
