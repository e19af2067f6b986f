#include "bytes.hpp"
#include "contest.hpp"
#include "descriptor_device.hpp"

#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/streams/buffered_io_device.hpp>
#include <foundation/storage/vfs/streams/file_streams.hpp>

#include <boost/iostreams/filtering_stream.hpp>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>
#ifdef WITH_GIO
#include <gio/gio.h>
#endif

namespace bench {

namespace {

namespace vfs = foundation::storage::vfs;

constexpr std::size_t fileSize = 64U << 20;
constexpr std::size_t bufferSize = 128U << 10;
constexpr long piece = 16;

/// Reads the file piece by piece; every piece is looked at.
template<class Read>
void readPieces(Read read) {
    std::size_t pieces = 0;
    std::uint64_t sum = 0;
    char bytes[piece];
    while (read(bytes) == piece) {
        std::uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        sum += word;
        ++pieces;
    }
    if (pieces != fileSize / piece || sum == 0) {
        errno = EIO;
        fail("a file ended after " + std::to_string(pieces) + " pieces");
    }
}

/// What a buffer costs at the least: a test and a copy that the compiler sees.
void readByHand(std::string const& path) {
    DescriptorDevice const device = DescriptorDevice::forReading(path);
    std::vector<char> buffer(bufferSize);
    char const* next = buffer.data();
    char const* end = next;
    readPieces([&](char* to) -> long {
        if (end - next < piece) {
            long const got = device.read(buffer.data(), bufferSize);
            next = buffer.data();
            end = next + (got < 0 ? 0 : got);
            if (got < piece) {
                return 0;
            }
        }
        std::memcpy(to, next, piece);
        next += piece;
        return piece;
    });
    device.close();
}

void readByFread(std::string const& path) {
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        fail(path);
    }
    readPieces([&](char* to) { return static_cast<long>(std::fread(to, 1, piece, file)); });
    std::fclose(file);
}

template<class Stream>
long readPiece(Stream& stream, char* to) {
    stream.read(to, piece);
    return stream.gcount();
}

template<class Stream, class Source>
void readByStream(Source const& source) {
    Stream stream(source, std::ios_base::in | std::ios_base::binary);
    readPieces([&](char* to) { return readPiece(stream, to); });
    stream.close();
}

void readByChain(std::string const& path) {
    DescriptorDevice const device = DescriptorDevice::forReading(path);
    boost::iostreams::filtering_stream<boost::iostreams::seekable> stream;
    stream.push(device, bufferSize);
    readPieces([&](char* to) { return readPiece(stream, to); });
    stream.reset();
    device.close();
}

void readByDevice(vfs::File const& file) {
    vfs::BufferedIODevice device(file);
    readPieces([&](char* to) { return device.read(to, piece); });
    device.close();
}

#ifdef WITH_GIO
void readByGio(std::string const& path) {
    GFile* const file = g_file_new_for_path(path.c_str());
    GFileInputStream* const bare = g_file_read(file, nullptr, nullptr);
    if (bare == nullptr) {
        fail(path);
    }
    GInputStream* const stream =
        g_buffered_input_stream_new_sized(G_INPUT_STREAM(bare), bufferSize);
    readPieces([&](char* to) { return g_input_stream_read(stream, to, piece, nullptr, nullptr); });
    g_object_unref(stream);
    g_object_unref(bare);
    g_object_unref(file);
}
#endif

} // namespace

void holdSmallReads(Workplace const& place) {
    std::string const path = place.path / "small";
    vfs::File const file(place.folder, u"small");
    makeFile(path, fileSize);

    Goal const goal{1.15, "std::ifstream"};
    hold({"reads of 16 bytes",
          "ns a read",
          1e-9 * static_cast<double>(fileSize / piece),
          21,
          {
              {"inline buffer", [&] { readByHand(path); }},
              {"std::ifstream", [&] { readByStream<std::ifstream>(path); }},
              {"fread", [&] { readByFread(path); }},
              {"Boost chain", [&] { readByChain(path); }},
#ifdef WITH_GIO
              {"GIO", [&] { readByGio(path); }},
#endif
              {"vfs::ifstream", [&] { readByStream<vfs::ifstream>(file); }, {goal}},
              {"BufferedIODevice", [&] { readByDevice(file); }, {goal}},
          }});
    std::filesystem::remove(path);
}

} // namespace bench
