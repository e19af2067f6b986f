#include "../scenario.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <cerrno>
#include <fcntl.h>
#include <sys/syscall.h>

namespace fault_sweep {

namespace {

using provider::ByteStreamAccess;
using provider::ByteStreamCreation;
using provider::ReplacementPolicy;

constexpr std::size_t large = 600'000;
std::string const& content() {
    static std::string const bytes = contentOfSize(large, 3);
    return bytes;
}

void nothing(Place const&) {}

void oldFile(Place const& place) {
    place.makeFile("here/file", contentOfSize(50'000, 4));
}

/// In pieces that do not fit the buffers.
template<class Write>
void writeInPieces(Write const& write) {
    constexpr std::size_t piece = 70'001;
    for (std::size_t at = 0; at < content().size(); at += piece) {
        write(content().data() + at, static_cast<long>(std::min(piece, content().size() - at)));
    }
}

auto replacing(ReplacementPolicy policy, bool triesAgain) {
    return [=](Place const& place) {
        auto const item = place.item("here/file");
        auto const stream =
            dynamic_cast<provider::extensions::IReplacingStreams&>(*item.getProvider())
                .openReplacement(item.getLocation(), policy);
        writeInPieces([&](char const* bytes, long count) {
            for (long done = 0; done < count;) {
                done += stream->write(bytes + done, count - done);
            }
        });
        try {
            stream->close();
        } catch (provider::ByteStreamFailure const&) {
            if (!triesAgain) {
                throw;
            }
            stream->close(); // what stands has to be whole, whether this one helped or not
        }
        return Told::Done;
    };
}

Told writeByDevice(Place const& place) {
    vfs::IODevice device(place.file("here/file"), provider::ByteStreamOpenOptions{});
    writeInPieces([&](char const* bytes, long count) { device.write(bytes, count); });
    device.close();
    return Told::Done;
}

Told writeByBuffer(Place const& place) {
    vfs::BufferedIODevice device(place.file("here/file"), provider::ByteStreamOpenOptions{});
    bool all = true;
    writeInPieces(
        [&](char const* bytes, long count) { all = device.write(bytes, count) == count && all; });
    device.close();
    return all ? Told::Done : Told::Failed;
}

Told overwriteByBuffer(Place const& place) {
    vfs::BufferedIODevice device(place.file("here/file"),
                                 {ByteStreamAccess::ReadWrite, ByteStreamCreation::OpenExisting,
                                  /*withoutTruncate=*/1, /*withoutAppend=*/1});
    char first[10];
    bool all = device.read(first, 10) == 10;
    device.seek(40'000, std::ios_base::beg);
    writeInPieces(
        [&](char const* bytes, long count) { all = device.write(bytes, count) == count && all; });
    device.seek(5, std::ios_base::beg);
    all = device.write(first, 10) == 10 && all;
    device.close();
    return all ? Told::Done : Told::Failed;
}

auto writeByStream(std::ios_base::openmode mode) {
    return [mode](Place const& place) {
        vfs::ofstream stream(place.file("here/file"), mode);
        writeInPieces([&](char const* bytes, long count) { stream.write(bytes, count); });
        stream.close();
        return stream ? Told::Done : Told::Failed;
    };
}

Told updateByStream(Place const& place) {
    vfs::fstream stream(place.file("here/file"));
    char first[10];
    stream.read(first, 10);
    stream.seekp(40'000);
    writeInPieces([&](char const* bytes, long count) { stream.write(bytes, count); });
    stream.seekp(5);
    stream.write(first, 10);
    stream.close();
    return stream ? Told::Done : Told::Failed;
}

} // namespace

void addStreamScenarios(std::vector<Scenario>& scenarios) {
    std::vector<Scenario> const replacements = {
        {"openReplacement, write, close", nothing,
         replacing(ReplacementPolicy::FailIfExists, false)},
        {"openReplacement, write, close, onto a file", oldFile,
         replacing(ReplacementPolicy::ReplaceExisting, false)},
        {"openReplacement, write, close, close again", nothing,
         replacing(ReplacementPolicy::FailIfExists, true)},
        {"openReplacement, write, close, close again, onto a file", oldFile,
         replacing(ReplacementPolicy::ReplaceExisting, true)},
    };
    std::vector<MissingCall> const unnamed = {{SYS_openat, 2, O_TMPFILE, EOPNOTSUPP}};
    scenarios.insert(scenarios.end(), replacements.begin(), replacements.end());
    for (Scenario const& scenario : without("unnamed files", unnamed, replacements)) {
        scenarios.push_back(scenario);
    }

    std::set<std::string> const file = {"here/file"};
    scenarios.push_back({"IODevice, write, close", nothing, writeByDevice, file});
    scenarios.push_back({"IODevice, write, close, onto a file", oldFile, writeByDevice, file});
    scenarios.push_back({"BufferedIODevice, write, close", nothing, writeByBuffer, file});
    scenarios.push_back({"BufferedIODevice, read, seek, write", oldFile, overwriteByBuffer, file});
    scenarios.push_back(
        {"ofstream, write, close", nothing, writeByStream(std::ios_base::out), file});
    scenarios.push_back({"ofstream, write, close, onto a file", oldFile,
                         writeByStream(std::ios_base::trunc), file});
    scenarios.push_back(
        {"ofstream, append, close", oldFile, writeByStream(std::ios_base::app), file});
    scenarios.push_back({"fstream, read, seek, write, close", oldFile, updateByStream, file});
}

} // namespace fault_sweep
