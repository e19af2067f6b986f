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

constexpr std::size_t fileSize = 128U << 20;
constexpr std::size_t call = 128U << 10;

/// What everybody writes: how a buffer lies in its pages makes a part of the time.
std::vector<char> const& sharedContent() {
    static std::vector<char> const content(call, 'x');
    return content;
}

template<class Write>
void writeAll(Write write) {
    std::vector<char> const& content = sharedContent();
    for (std::size_t done = 0; done < fileSize; done += call) {
        write(content.data(), static_cast<long>(call));
    }
}

void requireWritten(long put) {
    if (put != static_cast<long>(call)) {
        errno = EIO;
        fail("a write took " + std::to_string(put) + " bytes");
    }
}

void writeByCalls(std::string const& path) {
    DescriptorDevice const device = DescriptorDevice::forWriting(path);
    writeAll([&](char const* from, long count) { device.write(from, count); });
    device.close();
}

template<class Stream, class Target>
void writeByStream(Target const& target) {
    Stream stream(target, std::ios_base::out | std::ios_base::trunc | std::ios_base::binary);
    writeAll([&](char const* from, long count) { stream.write(from, count); });
    if (!stream) {
        errno = EIO;
        fail("a stream failed");
    }
    stream.close();
}

template<class Device>
void writeByDevice(vfs::File const& file) {
    namespace provider = foundation::storage::provider;
    Device device(file, provider::ByteStreamOpenOptions{});
    writeAll([&](char const* from, long count) { requireWritten(device.write(from, count)); });
    device.close();
}

} // namespace

void holdSequentialWrite(Workplace const& place) {
    std::string const path = place.path / "written";
    vfs::File const file(place.folder, u"written");
    // Every round makes a new file; removing the one before is not part of the work.
    auto const remove = [path] { std::filesystem::remove(path); };

    Goal const asRaw{1.05, "write(2)"};
    Goal const asStream{1.5, "write(2)"};
    hold({"sequential write of 128 MiB in calls of 128 KiB",
          "ms",
          1e-3,
          15,
          {
              {"write(2)", [&] { writeByCalls(path); }, {}, remove},
              {"std::ofstream", [&] { writeByStream<std::ofstream>(path); }, {}, remove},
              {"IODevice", [&] { writeByDevice<vfs::IODevice>(file); }, {asRaw}, remove},
              {"BufferedIODevice",
               [&] { writeByDevice<vfs::BufferedIODevice>(file); },
               {asStream},
               remove},
              {"vfs::ofstream", [&] { writeByStream<vfs::ofstream>(file); }, {asStream}, remove},
          }});
    remove();
}

} // namespace bench
