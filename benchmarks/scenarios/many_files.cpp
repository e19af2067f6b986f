#include "bytes.hpp"
#include "contest.hpp"
#include "descriptor_device.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/streams/file_streams.hpp>
#include <foundation/storage/vfs/streams/io_device.hpp>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <vector>

namespace bench {

namespace {

namespace vfs = foundation::storage::vfs;
using fl::i18n::ustring;

constexpr int fileCount = 10000;
constexpr std::size_t fileSize = 16U << 10;

using Buffer = std::array<char, 64U << 10>;
Buffer buffer;

void requireWhole(long got) {
    if (got != static_cast<long>(fileSize)) {
        errno = EIO;
        fail("a file gave " + std::to_string(got) + " bytes");
    }
}

/// One open, one read, one close: what cannot be done without.
void readByCalls(std::string const& path) {
    DescriptorDevice const device = DescriptorDevice::forReading(path);
    requireWhole(device.read(buffer.data(), buffer.size()));
    device.close();
}

template<class Stream, class Source>
void readByStream(Source const& source) {
    Stream stream(source, std::ios_base::in | std::ios_base::binary);
    stream.read(buffer.data(), buffer.size());
    requireWhole(stream.gcount());
    stream.close();
}

void readByFread(std::string const& path) {
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        fail(path);
    }
    requireWhole(static_cast<long>(std::fread(buffer.data(), 1, buffer.size(), file)));
    std::fclose(file);
}

void readByDevice(vfs::File const& file) {
    vfs::IODevice device(file);
    requireWhole(device.read(buffer.data(), buffer.size()));
    device.close();
}

} // namespace

void holdManyFiles(Workplace const& place) {
    std::filesystem::path const path = place.path / "many";
    vfs::Folder const folder(place.folder, u"many");
    std::filesystem::create_directory(path);
    std::vector<std::string> names;
    std::vector<ustring> wideNames;
    for (int i = 0; i < fileCount; ++i) {
        names.push_back("file-" + std::to_string(10000 + i) + ".data");
        wideNames.push_back(fl::i18n::to_ustring(names.back()));
        makeFile(path / names.back(), fileSize);
    }

    auto const byPath = [&, prefix = path.string() + '/'](void (*read)(std::string const&)) {
        return [&, prefix, read] {
            for (std::string const& name : names) {
                read(prefix + name);
            }
        };
    };
    auto const byChild = [&](void (*read)(vfs::File const&)) {
        return [&, read] {
            for (ustring const& name : wideNames) {
                read(vfs::File(folder, name));
            }
        };
    };
    Goal const goal{1.35, "open, read, close"};
    hold({"10,000 files of 16 KiB, each opened, read and closed",
          "us a file",
          1e-6 * fileCount,
          31,
          {
              {"open, read, close", byPath(readByCalls)},
              {"std::ifstream", byPath(readByStream<std::ifstream, std::string>)},
              {"fread", byPath(readByFread)},
              {"File and IODevice", byChild(readByDevice), {goal}},
              {"File and vfs::ifstream", byChild(readByStream<vfs::ifstream, vfs::File>), {goal}},
          }});
    std::filesystem::remove_all(path);
}

} // namespace bench
