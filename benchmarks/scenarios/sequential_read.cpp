#include "bytes.hpp"
#include "contest.hpp"
#include "descriptor_device.hpp"

#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/streams/buffered_io_device.hpp>
#include <foundation/storage/vfs/streams/file_streams.hpp>
#include <foundation/storage/vfs/streams/io_device.hpp>

#include <cerrno>
#include <fstream>
#include <vector>

namespace bench {

namespace {

namespace vfs = foundation::storage::vfs;

constexpr std::size_t fileSize = 256U << 20;
constexpr std::size_t large = 128U << 10;
constexpr std::size_t small = 4U << 10;
constexpr int rounds = 21;

/// Where everybody reads to: how a buffer lies in its pages makes a tenth of the time.
std::vector<char>& sharedBuffer() {
    static std::vector<char> buffer(large);
    return buffer;
}

/// Calls `read` until it gives nothing more.
template<class Read>
void readToEnd(std::size_t call, Read read) {
    std::vector<char>& buffer = sharedBuffer();
    std::size_t total = 0;
    for (long got = 0; (got = read(buffer.data(), static_cast<long>(call))) > 0;) {
        total += static_cast<std::size_t>(got);
    }
    if (total != fileSize) {
        errno = EIO;
        fail("a file ended after " + std::to_string(total) + " bytes");
    }
}

std::function<void()> byCalls(std::string const& path, std::size_t call) {
    return [=] {
        DescriptorDevice const device = DescriptorDevice::forReading(path);
        readToEnd(call, [&](char* to, long count) { return device.read(to, count); });
        device.close();
    };
}

template<class Device>
std::function<void()> byDevice(vfs::File const& file, std::size_t call) {
    return [=] {
        Device device(file);
        readToEnd(call, [&](char* to, long count) { return device.read(to, count); });
        device.close();
    };
}

template<class Stream, class Source>
std::function<void()> byStream(Source const& source, std::size_t call) {
    return [=] {
        Stream stream(source, std::ios_base::in | std::ios_base::binary);
        readToEnd(call, [&](char* to, long count) {
            stream.read(to, count);
            return stream.gcount();
        });
        stream.close();
    };
}

} // namespace

void holdSequentialRead(Workplace const& place) {
    std::string const path = place.path / "large";
    vfs::File const file(place.folder, u"large");
    makeFile(path, fileSize);

    Goal const asRaw{1.05, "read(2)"};
    hold({"sequential read of 256 MiB in calls of 128 KiB",
          "ms",
          1e-3,
          rounds,
          {
              {"read(2)", byCalls(path, large)},
              {"std::ifstream", byStream<std::ifstream>(path, large)},
              {"IODevice", byDevice<vfs::IODevice>(file, large), {asRaw}},
              {"BufferedIODevice", byDevice<vfs::BufferedIODevice>(file, large), {asRaw}},
              {"vfs::ifstream", byStream<vfs::ifstream>(file, large), {asRaw}},
          }});
    Goal const nearRaw{1.15, "read(2)"};
    hold({"sequential read of 256 MiB in calls of 4 KiB",
          "ms",
          1e-3,
          rounds,
          {
              {"read(2)", byCalls(path, small)},
              {"read(2), 128 KiB", byCalls(path, large)},
              {"std::ifstream", byStream<std::ifstream>(path, small)},
              {"IODevice", byDevice<vfs::IODevice>(file, small), {nearRaw}},
              {"BufferedIODevice", byDevice<vfs::BufferedIODevice>(file, small), {nearRaw}},
              {"vfs::ifstream", byStream<vfs::ifstream>(file, small), {nearRaw}},
          }});
    std::filesystem::remove(path);
}

} // namespace bench
