// What tar archives are measured beside.

#include "archives_tar_peers.hpp"

#include "contest.hpp"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <unistd.h>
#include <unordered_map>
#include <vector>
#include <zlib.h>

namespace bench {

namespace {

constexpr std::uint64_t blockSize = 512;
constexpr std::size_t bufferSize = 128 * 1024;

/// Reads at a position, which never goes back.
using ReadAt = std::function<void(std::uint64_t position, char* to, std::size_t size)>;

std::uint64_t octal(std::string_view digits) {
    std::uint64_t value = 0;
    for (char const digit : digits) {
        value = value * 8 + static_cast<std::uint64_t>(digit - '0');
    }
    return value;
}

Amount readWith(ReadAt const& readAt, Reading reading) {
    Amount amount;
    std::unordered_map<std::string, std::uint64_t> index;
    std::vector<char> buffer(bufferSize);
    char header[blockSize];
    for (std::uint64_t at = 0;;) {
        readAt(at, header, blockSize);
        if (header[0] == '\0') {
            return amount;
        }
        index.emplace(header, at);
        std::uint64_t const size = octal({header + 124, 11});
        constexpr std::size_t typeAt = 156;
        if (header[typeAt] == '0') {
            ++amount.members;
            amount.bytes += size;
        }
        at += blockSize;
        for (std::uint64_t done = 0; reading == Reading::Contents && done < size;) {
            std::size_t const part = std::min<std::uint64_t>(size - done, buffer.size());
            readAt(at + done, buffer.data(), part);
            done += part;
        }
        at += (size + blockSize - 1) / blockSize * blockSize;
    }
}

} // namespace

Amount readTarByHand(std::string const& archive, Reading reading) {
    if (archive.ends_with(".gz")) {
        std::unique_ptr<gzFile_s, int (*)(gzFile)> const file(::gzopen(archive.c_str(), "rb"),
                                                              ::gzclose);
        ::gzbuffer(file.get(), bufferSize);
        return readWith(
            [&](std::uint64_t position, char* to, std::size_t size) {
                ::gzseek(file.get(), static_cast<z_off_t>(position), SEEK_SET);
                if (::gzread(file.get(), to, static_cast<unsigned>(size)) !=
                    static_cast<int>(size)) {
                    throw std::runtime_error("zlib: a short read");
                }
            },
            reading);
    }
    int const file = ::open(archive.c_str(), O_RDONLY);
    if (file < 0) {
        fail(archive);
    }
    Amount const amount = readWith(
        [&](std::uint64_t position, char* to, std::size_t size) {
            if (::pread(file, to, size, static_cast<off_t>(position)) !=
                static_cast<ssize_t>(size)) {
                throw std::runtime_error("a short read");
            }
        },
        reading);
    ::close(file);
    return amount;
}

Amount readTarWithLibarchive(std::string const& archive, Reading reading) {
    std::unique_ptr<::archive, int (*)(::archive*)> const reader(::archive_read_new(),
                                                                 ::archive_read_free);
    ::archive_read_support_format_tar(reader.get());
    ::archive_read_support_filter_gzip(reader.get());
    if (::archive_read_open_filename(reader.get(), archive.c_str(), 1 << 16) != ARCHIVE_OK) {
        throw std::runtime_error("libarchive");
    }
    Amount amount;
    archive_entry* entry = nullptr;
    while (::archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK) {
        if (::archive_entry_filetype(entry) != AE_IFREG) {
            continue;
        }
        ++amount.members;
        if (reading == Reading::Headers) {
            amount.bytes += static_cast<std::uint64_t>(::archive_entry_size(entry));
            continue;
        }
        void const* data = nullptr;
        std::size_t size = 0;
        la_int64_t offset = 0;
        while (::archive_read_data_block(reader.get(), &data, &size, &offset) == ARCHIVE_OK) {
            amount.bytes += size;
        }
    }
    return amount;
}

} // namespace bench
