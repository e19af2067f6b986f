// What zip archives are measured beside.

#include "archives_zip_peers.hpp"

#include "contest.hpp"

#include <archive.h>
#include <archive_entry.h>
#include <cstring>
#include <fcntl.h>
#include <libdeflate.h>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <zip.h>
#include <zlib.h>

namespace bench {

namespace {

void require(bool condition, char const* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

class OpenFile {
  public:
    explicit OpenFile(std::string const& path) : number_(::open(path.c_str(), O_RDONLY)) {
        if (number_ < 0) {
            fail(path);
        }
    }
    OpenFile(OpenFile const&) = delete;
    OpenFile& operator=(OpenFile const&) = delete;
    ~OpenFile() { ::close(number_); }

    std::size_t size() const {
        struct stat item {};
        require(::fstat(number_, &item) == 0, "no size");
        return static_cast<std::size_t>(item.st_size);
    }
    void read(std::size_t offset, unsigned char* bytes, std::size_t size) const {
        require(::pread(number_, bytes, size, static_cast<off_t>(offset)) ==
                    static_cast<ssize_t>(size),
                "a short read");
    }

  private:
    int number_;
};

template<class Number>
Number numberAt(unsigned char const* at) {
    Number number = 0;
    std::memcpy(&number, at, sizeof number);
    return number;
}

/// The directory of an archive without a comment.
std::vector<unsigned char> directoryOf(OpenFile const& file) {
    constexpr std::size_t endSize = 22;
    unsigned char end[endSize];
    std::size_t const size = file.size();
    file.read(size - endSize, end, endSize);
    std::vector<unsigned char> directory(numberAt<std::uint32_t>(end + 12));
    file.read(numberAt<std::uint32_t>(end + 16), directory.data(), directory.size());
    return directory;
}

/// Calls `visit` for each header of a directory.
template<class Visit>
void forEachHeader(std::vector<unsigned char> const& directory, Visit const& visit) {
    for (std::size_t at = 0; at < directory.size();) {
        unsigned char const* const header = directory.data() + at;
        visit(header, std::string_view(reinterpret_cast<char const*>(header + 46),
                                       numberAt<std::uint16_t>(header + 28)));
        at += 46U + numberAt<std::uint16_t>(header + 28) + numberAt<std::uint16_t>(header + 30) +
              numberAt<std::uint16_t>(header + 32);
    }
}

using Zip = std::unique_ptr<zip_t, void (*)(zip_t*)>;

Zip zipOf(std::string const& archive) {
    return {::zip_open(archive.c_str(), ZIP_RDONLY, nullptr), ::zip_discard};
}

} // namespace

Amount scanByHand(std::string const& archive) {
    OpenFile const file(archive);
    std::vector<unsigned char> const directory = directoryOf(file);
    Amount amount;
    std::unordered_map<std::string_view, std::uint32_t> index;
    index.reserve(directory.size() / 64);
    forEachHeader(directory, [&](unsigned char const* header, std::string_view name) {
        index.emplace(name, numberAt<std::uint32_t>(header + 42));
        amount.members += name.ends_with('/') ? 0 : 1;
        amount.bytes += numberAt<std::uint32_t>(header + 24);
    });
    return amount;
}

Amount listWithLibzip(std::string const& archive) {
    Zip const zip = zipOf(archive);
    Amount amount;
    for (zip_int64_t i = 0; i < ::zip_get_num_entries(zip.get(), 0); ++i) {
        zip_stat_t item;
        require(::zip_stat_index(zip.get(), static_cast<zip_uint64_t>(i), 0, &item) == 0, "libzip");
        amount.members += std::string_view(item.name).ends_with('/') ? 0 : 1;
        amount.bytes += item.size;
    }
    return amount;
}

Amount listWithLibarchive(std::string const& archive) {
    std::unique_ptr<::archive, int (*)(::archive*)> const reader(::archive_read_new(),
                                                                 ::archive_read_free);
    ::archive_read_support_format_zip(reader.get());
    require(::archive_read_open_filename(reader.get(), archive.c_str(), 1 << 16) == ARCHIVE_OK,
            "libarchive");
    Amount amount;
    archive_entry* entry = nullptr;
    while (::archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK) {
        amount.members += ::archive_entry_filetype(entry) == AE_IFREG ? 1 : 0;
        amount.bytes += static_cast<std::uint64_t>(::archive_entry_size(entry));
    }
    return amount;
}

Amount decodeByHand(std::string const& archive, Codec codec) {
    OpenFile const file(archive);
    std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> const decompressor(
        ::libdeflate_alloc_decompressor(), ::libdeflate_free_decompressor);
    Amount amount;
    std::vector<unsigned char> stored;
    std::vector<unsigned char> content;
    forEachHeader(directoryOf(file), [&](unsigned char const* header, std::string_view) {
        std::size_t const offset = numberAt<std::uint32_t>(header + 42);
        unsigned char local[30];
        file.read(offset, local, sizeof local);
        stored.resize(numberAt<std::uint32_t>(header + 20));
        content.resize(numberAt<std::uint32_t>(header + 24));
        file.read(offset + sizeof local + numberAt<std::uint16_t>(local + 26) +
                      numberAt<std::uint16_t>(local + 28),
                  stored.data(), stored.size());
        std::uint32_t sum = 0;
        if (codec == Codec::Libdeflate) {
            require(::libdeflate_deflate_decompress(decompressor.get(), stored.data(),
                                                    stored.size(), content.data(), content.size(),
                                                    nullptr) == LIBDEFLATE_SUCCESS,
                    "libdeflate");
            sum = ::libdeflate_crc32(0, content.data(), content.size());
        } else {
            z_stream state{};
            require(::inflateInit2(&state, -MAX_WBITS) == Z_OK, "zlib");
            state.next_in = stored.data();
            state.avail_in = static_cast<uInt>(stored.size());
            state.next_out = content.data();
            state.avail_out = static_cast<uInt>(content.size());
            require(::inflate(&state, Z_FINISH) == Z_STREAM_END, "zlib");
            ::inflateEnd(&state);
            sum = static_cast<std::uint32_t>(
                ::crc32(0, content.data(), static_cast<uInt>(content.size())));
        }
        require(sum == numberAt<std::uint32_t>(header + 16), "a wrong check sum");
        ++amount.members;
        amount.bytes += content.size();
    });
    return amount;
}

Amount decodeWithLibzip(std::string const& archive) {
    Zip const zip = zipOf(archive);
    Amount amount;
    std::vector<char> buffer(64 * 1024);
    for (zip_int64_t i = 0; i < ::zip_get_num_entries(zip.get(), 0); ++i) {
        zip_file_t* const member = ::zip_fopen_index(zip.get(), static_cast<zip_uint64_t>(i), 0);
        require(member != nullptr, "libzip");
        zip_int64_t got = 0;
        while ((got = ::zip_fread(member, buffer.data(), buffer.size())) > 0) {
            amount.bytes += static_cast<std::uint64_t>(got);
        }
        require(got == 0 && ::zip_fclose(member) == 0, "libzip");
        ++amount.members;
    }
    return amount;
}

LibzipArchive::LibzipArchive(std::string const& archive)
    : opened_(::zip_open(archive.c_str(), ZIP_RDONLY, nullptr)) {
    require(opened_ != nullptr, "libzip");
}

LibzipArchive::~LibzipArchive() {
    ::zip_discard(opened_);
}

Amount LibzipArchive::read(std::span<std::string const> names) const {
    Amount amount;
    std::vector<char> buffer(64 * 1024);
    for (std::string const& name : names) {
        zip_file_t* const member = ::zip_fopen(opened_, name.c_str(), 0);
        require(member != nullptr, "libzip");
        zip_int64_t const got = ::zip_fread(member, buffer.data(), buffer.size());
        require(got >= 0, "libzip");
        amount.bytes += static_cast<std::uint64_t>(got);
        ::zip_fclose(member);
        ++amount.members;
    }
    return amount;
}

} // namespace bench
