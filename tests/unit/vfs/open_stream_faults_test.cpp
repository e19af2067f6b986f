// Every read, write, seek and close of the streams that a program has open fails or falls short,
// one after the other.

#include "unit/vfs/stream_faults.hpp"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace stream_faults;

/// In pieces that fit no buffer.
template<class Write>
void writeInPieces(Write const& write) {
    constexpr std::size_t piece = 70'001;
    for (std::size_t at = 0; at < newContent.size(); at += piece) {
        write(newContent.data() + at, static_cast<long>(std::min(piece, newContent.size() - at)));
    }
}

/// A way to fill a file. Returns whether all went well, as far as the stream says without throwing.
struct Writer {
    char const* name;
    bool (*write)(vfs::File const&);
    std::vector<std::string> types; ///< of what is thrown
    bool replaces = false;          ///< the file has its old content until it has the new one
    bool seeks = false;
};

bool writeByDevice(vfs::File const& file) {
    vfs::IODevice device(file, provider::ByteStreamOpenOptions{});
    writeInPieces([&](char const* bytes, long count) { device.write(bytes, count); });
    device.close();
    return true;
}

bool writeByBuffer(vfs::File const& file) {
    vfs::BufferedIODevice device(file, provider::ByteStreamOpenOptions{});
    bool isAll = true;
    writeInPieces([&](char const* bytes, long count) {
        isAll = device.write(bytes, count) == count && isAll;
    });
    device.close();
    return isAll;
}

bool writeByStream(vfs::File const& file) {
    vfs::ofstream stream(file);
    writeInPieces([&](char const* bytes, long count) { stream.write(bytes, count); });
    stream.close();
    return stream.good();
}

/// The middle comes last.
bool writeWithSeeks(vfs::File const& file) {
    vfs::fstream stream(file, std::ios_base::in | std::ios_base::out | std::ios_base::trunc);
    stream.write(newContent.data(), 1000);
    stream.seekp(150'000);
    stream.write(newContent.data() + 150'000, 150'000);
    stream.seekp(1000);
    stream.write(newContent.data() + 1000, 149'000);
    stream.close();
    return stream.good();
}

bool writeAReplacement(vfs::File const& file) {
    provider::StorageItem const item(
        file.getStorageSystem().buildProvider(file.getLocation().toStorageIRI()),
        file.getLocation().toStorageIRI());
    auto const stream =
        dynamic_cast<provider::extensions::IReplacingStreams&>(*item.getProvider())
            .openReplacement(item.getLocation(), ReplacementPolicy::ReplaceExisting);
    writeInPieces([&](char const* bytes, long count) { stream->write(bytes, count); });
    stream->close();
    return true;
}

// What a buffer still holds is written by close(), and a stream that failed to write fails to
// close. A standard stream keeps what its buffer throws to itself, but for seekp(), which catches
// nothing.
std::array const writers{
    Writer{"AnIODevice", writeByDevice, {"write", "close"}},
    Writer{"ABufferedIODevice", writeByBuffer, {"write", "close"}},
    Writer{"AnOfstream", writeByStream, {"close"}},
    Writer{"AnFstreamThatSeeks", writeWithSeeks, {"close", "provider's seek"}, false, true},
    Writer{"AReplacement", writeAReplacement, {"provider's write", "provider's close"}, true},
};

bool isOneOf(std::string const& type, std::vector<std::string> const& types) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

using Make = std::shared_ptr<Storage> (*)(bool isInPlace);
struct Kind {
    char const* name;
    Make make;
};
constexpr std::array kinds{Kind{"InMemory", memory}, Kind{"OnADisk", disk}};

World worldOf(Kind const& kind) {
    auto const storage = kind.make(false);
    return World(storage, storage);
}

template<class Named>
requires requires(Named const& named) {
    std::string(named.name);
}
std::ostream& operator<<(std::ostream& out, Named const& named) {
    return out << named.name;
}

template<class Piece>
std::string nameOf(testing::TestParamInfo<std::tuple<Kind, Piece>> const& info) {
    auto const& [kind, piece] = info.param;
    return std::string(piece.name) + kind.name;
}

class WritingUnderStreamFaults : public testing::TestWithParam<std::tuple<Kind, Writer>> {};

TEST_P(WritingUnderStreamFaults, StoresEverythingOrSaysThatItDidNot) {
    auto const& [kind, writer] = GetParam();
    World const world = worldOf(kind);
    vfs::File const target = world.target();
    struct Outcome {
        std::optional<Failure> failure;
        bool isWell = false;
    };

    for (StreamFault const& fault : faults) {
        unsigned const met = sweep(
            world, world.to(), fault, [&] { world.to().put(u"target", oldContent); },
            [&] {
                Outcome outcome;
                outcome.failure = failureOf([&] { outcome.isWell = writer.write(target); });
                return outcome;
            },
            [&](Outcome const& outcome, bool wasMet) {
                auto const found = world.files();
                EXPECT_EQ(found.size(), 1U);
                if (!wasMet || !fault.isFailure()) {
                    EXPECT_EQ(outcome.failure, std::nullopt);
                    EXPECT_TRUE(outcome.isWell);
                    EXPECT_TRUE(found.at("target") == newContent);
                    return;
                }
                EXPECT_FALSE(outcome.isWell);
                if (outcome.failure) {
                    EXPECT_EQ(outcome.failure->code, fault.codeName());
                    EXPECT_TRUE(isOneOf(outcome.failure->type, writer.types)) << *outcome.failure;
                }
                if (writer.replaces) {
                    EXPECT_TRUE(found.at("target") == oldContent);
                }
            });
        bool const isMade = fault.operation == Operation::Write ||
                            fault.operation == Operation::Close ||
                            (fault.operation == Operation::Seek && writer.seeks);
        EXPECT_EQ(met > 0, isMade) << fault.name;
        if (HasFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sweep, WritingUnderStreamFaults,
                         testing::Combine(testing::ValuesIn(kinds), testing::ValuesIn(writers)),
                         nameOf<Writer>);

/// A way to read a file, into `bytes`. Returns whether all went well, as far as the stream says
/// without throwing.
struct Reader {
    char const* name;
    bool (*read)(vfs::File const&, std::string& bytes);
    std::vector<std::string> types; ///< of what is thrown
};

template<class Device>
bool readByDevice(vfs::File const& file, std::string& bytes) {
    Device device(file);
    std::vector<char> piece(70'001);
    for (long got = 0; (got = device.read(piece.data(), static_cast<long>(piece.size()))) > 0;) {
        bytes.append(piece.data(), static_cast<std::size_t>(got));
    }
    device.close();
    return true;
}

bool readByStream(vfs::File const& file, std::string& bytes) {
    vfs::ifstream stream(file);
    std::vector<char> piece(70'001);
    while (stream) {
        stream.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        bytes.append(piece.data(), static_cast<std::size_t>(stream.gcount()));
    }
    bool const isWell = stream.eof() && !stream.bad();
    stream.close();
    return isWell;
}

std::array const readers{
    Reader{"AnIODevice", readByDevice<vfs::IODevice>, {"read", "close"}},
    Reader{"ABufferedIODevice", readByDevice<vfs::BufferedIODevice>, {"read", "close"}},
    Reader{"AnIfstream", readByStream, {"close"}},
};

class ReadingUnderStreamFaults : public testing::TestWithParam<std::tuple<Kind, Reader>> {};

TEST_P(ReadingUnderStreamFaults, GivesEveryByteOnceOrSaysThatItDidNot) {
    auto const& [kind, reader] = GetParam();
    World const world = worldOf(kind);
    vfs::File const source = world.source();
    struct Outcome {
        std::optional<Failure> failure;
        std::string bytes;
        bool isWell = false;
    };

    for (StreamFault const& fault : faults) {
        unsigned const met = sweep(
            world, world.from(), fault, [&] { world.from().put(u"source", newContent); },
            [&] {
                Outcome outcome;
                outcome.failure =
                    failureOf([&] { outcome.isWell = reader.read(source, outcome.bytes); });
                return outcome;
            },
            [&](Outcome const& outcome, bool wasMet) {
                EXPECT_TRUE(newContent.starts_with(outcome.bytes));
                if (!wasMet || !fault.isFailure()) {
                    EXPECT_EQ(outcome.failure, std::nullopt);
                    EXPECT_TRUE(outcome.isWell);
                    EXPECT_EQ(outcome.bytes.size(), newContent.size());
                    return;
                }
                EXPECT_FALSE(outcome.isWell);
                if (outcome.failure) {
                    EXPECT_EQ(outcome.failure->code, fault.codeName());
                    EXPECT_TRUE(isOneOf(outcome.failure->type, reader.types)) << *outcome.failure;
                }
            });
        bool const isMade =
            fault.operation == Operation::Read || fault.operation == Operation::Close;
        EXPECT_EQ(met > 0, isMade) << fault.name;
        if (HasFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sweep, ReadingUnderStreamFaults,
                         testing::Combine(testing::ValuesIn(kinds), testing::ValuesIn(readers)),
                         nameOf<Reader>);

} // namespace
