// What FaultInjector does to the streams of a storage.

#include <foundation/storage/conformance/call_counter.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using namespace foundation::storage::conformance;
using namespace foundation::storage::provider;
using enum ErrorCode;

/// The code of the failure that a call of a stream is to give; nothing where there is none.
template<class Failure, class Call>
std::optional<ErrorCode> failureOf(Call const& call) {
    try {
        call();
    } catch (Failure const& e) {
        return e.getErrorCode();
    }
    return std::nullopt;
}

class StreamFaults : public testing::Test {
  protected:
    StorageIRI const file{u"mem:/file"};
    std::shared_ptr<IProvider> store = memory::buildMemoryProvider();
    std::shared_ptr<FaultInjector> injector = decorate<FaultInjector>(store);

    void SetUp() override {
        auto const stream = store->openStream(file, {});
        stream->write("0123456789", 10);
        stream->close();
    }

    std::unique_ptr<ByteStream> toWrite() const { return injector->openStream(file, {}); }
    std::unique_ptr<ByteStream> toRead() const { return injector->openReadOnlyStream(file); }
    std::unique_ptr<ByteStream> toReplace() const {
        return dynamic_cast<extensions::IReplacingStreams&>(*injector).openReplacement(
            file, ReplacementPolicy::ReplaceExisting);
    }

    static std::string read(ByteStream& stream, long count) {
        std::string bytes(static_cast<std::size_t>(count), '\0');
        long const got = stream.read(bytes.data(), count);
        return got < 0 ? "end" : bytes.substr(0, static_cast<std::size_t>(got));
    }
    std::string stored() const { return read(*store->openReadOnlyStream(file), 100); }
};

TEST_F(StreamFaults, AStreamThatNothingIsAskedOfPassesItsBytes) {
    auto const out = toWrite();
    EXPECT_EQ(out->write("new text", 8), 8);
    EXPECT_EQ(out->seek(4, std::ios_base::beg), 4);
    EXPECT_EQ(out->write("TEXT", 4), 4);
    out->close();
    EXPECT_EQ(stored(), "new TEXT");
    EXPECT_EQ(read(*toRead(), 100), "new TEXT");
    EXPECT_EQ(injector->countOfFaults(), 0U);
}

TEST_F(StreamFaults, AReadThatIsShortGivesHalfAndTheNextOneTheRest) {
    injector->shortenReadAt(2);
    auto const in = toRead();
    EXPECT_EQ(read(*in, 2), "01");
    EXPECT_EQ(read(*in, 8), "2345");
    EXPECT_EQ(read(*in, 8), "6789");
    EXPECT_EQ(read(*in, 8), "end");
    EXPECT_EQ(injector->countOfFaults(), 1U);
}

TEST_F(StreamFaults, ReadsAreShortFromThenOnUntilOneByteIsAskedFor) {
    injector->shortenReadAt(1, Faulty::FromThenOn);
    auto const in = toRead();
    EXPECT_EQ(read(*in, 8), "0123");
    EXPECT_EQ(read(*in, 1), "4");
    EXPECT_EQ(read(*in, 3), "5");
    EXPECT_EQ(injector->countOfFaults(), 2U);
}

TEST_F(StreamFaults, AReadThatCannotBeShortIsNotTheOneThatWasMeant) {
    injector->shortenReadAt(1);
    auto const in = toRead();
    EXPECT_EQ(read(*in, 1), "0");
    EXPECT_EQ(read(*in, 0), "");
    EXPECT_EQ(injector->countOfFaults(), 0U);
    EXPECT_EQ(read(*in, 4), "12");
}

TEST_F(StreamFaults, AWriteThatIsShortStoresHalfAndFails) {
    injector->shortenWriteAt(2, NoSpaceLeft);
    auto const out = toWrite();
    out->write("abc", 3);
    EXPECT_EQ(failureOf<ByteStreamWriteFailure>([&] { out->write("DEFGH", 5); }), NoSpaceLeft);
    EXPECT_EQ(stored(), "abcDE");
}

TEST_F(StreamFaults, AWriteThatFailsStoresNothing) {
    injector->failAt(Operation::Write, 2, IOError);
    auto const out = toWrite();
    out->write("abc", 3);
    EXPECT_EQ(failureOf<ByteStreamWriteFailure>([&] { out->write("DEFGH", 5); }), IOError);
    EXPECT_EQ(stored(), "abc");
}

TEST_F(StreamFaults, AWriteThatFailedPoisonsTheStream) {
    for (bool const isShort : {false, true}) {
        if (isShort) {
            injector->shortenWriteAt(1, NoSpaceLeft);
        } else {
            injector->failAt(Operation::Write, 1, NoSpaceLeft);
        }
        auto const stream = injector->openStream(file, {ByteStreamAccess::ReadWrite});
        EXPECT_THROW(stream->write("abc", 3), ByteStreamWriteFailure);
        char byte = 0;
        EXPECT_EQ(failureOf<ByteStreamWriteFailure>([&] { stream->write("d", 1); }), NoSpaceLeft);
        EXPECT_EQ(failureOf<ByteStreamReadFailure>([&] { stream->read(&byte, 1); }), NoSpaceLeft);
        EXPECT_EQ(failureOf<ByteStreamSeekFailure>([&] { stream->seek(0, std::ios_base::beg); }),
                  NoSpaceLeft);
        try {
            stream->close();
            FAIL();
        } catch (ByteStreamCloseFailure const& e) {
            EXPECT_STREQ(e.what(), "close: an injected fault");
            EXPECT_EQ(e.getErrorCode(), NoSpaceLeft);
        }
    }
}

TEST_F(StreamFaults, AReadAndASeekThatFailedCanBeTriedAgain) {
    injector->failAt(Operation::Read, 2, IOError);
    injector->failAt(Operation::Seek, 1, InternalError);
    auto const in = toRead();
    EXPECT_EQ(read(*in, 2), "01");
    EXPECT_EQ(failureOf<ByteStreamReadFailure>([&] { read(*in, 2); }), IOError);
    EXPECT_EQ(failureOf<ByteStreamSeekFailure>([&] { in->seek(0, std::ios_base::beg); }),
              InternalError);
    EXPECT_EQ(read(*in, 2), "23");
    EXPECT_EQ(in->seek(0, std::ios_base::beg), 0);
    in->close();
}

TEST_F(StreamFaults, ACloseThatFailedPoisonsTheStream) {
    injector->failAt(Operation::Close, 1, NoSpaceLeft);
    auto const out = toWrite();
    out->write("abc", 3);
    EXPECT_EQ(failureOf<ByteStreamCloseFailure>([&] { out->close(); }), NoSpaceLeft);
    EXPECT_EQ(failureOf<ByteStreamCloseFailure>([&] { out->close(); }), NoSpaceLeft);
    EXPECT_EQ(failureOf<ByteStreamWriteFailure>([&] { out->write("d", 1); }), NoSpaceLeft);
}

TEST_F(StreamFaults, AReplacementWhoseCloseFailedIsNotPublishedAndCanBeClosedAgain) {
    injector->failAt(Operation::Close, 1, NoSpaceLeft);
    auto const out = toReplace();
    out->write("abc", 3);
    EXPECT_EQ(failureOf<ByteStreamCloseFailure>([&] { out->close(); }), NoSpaceLeft);
    EXPECT_EQ(stored(), "0123456789");
    out->close();
    EXPECT_EQ(stored(), "abc");
}

TEST_F(StreamFaults, AReplacementWithAShortWriteIsNeverPublished) {
    injector->shortenWriteAt(1, NoSpaceLeft);
    auto out = toReplace();
    EXPECT_THROW(out->write("abcd", 4), ByteStreamWriteFailure);
    EXPECT_EQ(failureOf<ByteStreamCloseFailure>([&] { out->close(); }), NoSpaceLeft);
    out.reset();
    EXPECT_EQ(stored(), "0123456789");
}

TEST_F(StreamFaults, CallsAreCountedOverAllStreams) {
    injector->failAt(Operation::Read, 2, IOError);
    auto const one = toRead();
    auto const other = toRead();
    EXPECT_EQ(read(*one, 2), "01");
    EXPECT_EQ(failureOf<ByteStreamReadFailure>([&] { read(*other, 2); }), IOError);
    EXPECT_EQ(read(*one, 2), "23");
}

TEST_F(StreamFaults, AnyCallIsNoneOfAStream) {
    injector->failAtAny(2, IOError);
    auto const in = toRead();
    EXPECT_EQ(read(*in, 2), "01");
    in->close();
    EXPECT_THROW(toRead(), Exception);
}

TEST_F(StreamFaults, OfAFailureAndAShorteningTheOneThatWasAskedForFirstIsMet) {
    injector->shortenWriteAt(1, NoSpaceLeft);
    injector->failAt(Operation::Write, 1, IOError);
    auto const out = toWrite();
    EXPECT_EQ(failureOf<ByteStreamWriteFailure>([&] { out->write("abcd", 4); }), NoSpaceLeft);
    EXPECT_EQ(injector->countOfFaults(), 1U);
}

TEST_F(StreamFaults, AStreamKeepsTheDecorator) {
    auto in = toRead();
    std::weak_ptr<FaultInjector> const weak = injector;
    injector.reset();
    EXPECT_EQ(read(*in, 2), "01");
    EXPECT_FALSE(weak.expired());
    in.reset();
    EXPECT_TRUE(weak.expired());
}

TEST_F(StreamFaults, CallsOfStreamsAreCountedByACounterToo) {
    auto const counter = decorate<CallCounter>(store);
    auto const in = counter->openReadOnlyStream(file);
    read(*in, 2);
    in->seek(0, std::ios_base::beg);
    read(*in, 2);
    in->close();
    EXPECT_EQ(counter->countOf(Operation::Read), 2U);
    EXPECT_EQ(counter->countOf(Operation::Seek), 1U);
    EXPECT_EQ(counter->countOf(Operation::Close), 1U);
    EXPECT_EQ(counter->countOfAll(), 5U);
}

} // namespace
