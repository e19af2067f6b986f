// Bytes in and out of files of the local disk: bench_bytes [FOLDER [WORK]]. The folder says which
// file system is used, the working directory's without one; the work is one of the table below, all
// of them without one.

#include "bytes.hpp"
#include "contest.hpp"

#include <fl/filesystem/basic_path.hpp>
#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdlib.h>
#include <thread>
#include <vector>

namespace bench {

void makeFile(std::filesystem::path const& path, std::size_t size) {
    std::vector<char> content(1 << 20);
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>(i * 31 + i / 251);
    }
    std::ofstream file(path, std::ios::binary);
    for (std::size_t left = size; left > 0 && file;) {
        std::size_t const part = std::min(left, content.size());
        file.write(content.data(), static_cast<std::streamsize>(part));
        left -= part;
    }
    file.close();
    if (!file) {
        fail(path.string());
    }
}

} // namespace bench

namespace {

class TemporaryFolder {
  public:
    explicit TemporaryFolder(std::filesystem::path const& parent)
        : path_((std::filesystem::absolute(parent) / "bench-bytes-XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) {
            bench::fail(path_);
        }
    }
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string const& path() const { return path_; }

  private:
    std::string path_;
};

struct Work {
    char const* name;
    void (*hold)(bench::Workplace const&);
};

// The memory comes first, while this program is small.
constexpr Work works[] = {
    {"memory", bench::showMemoryOfCat},    {"files", bench::holdManyFiles},
    {"read", bench::holdSequentialRead},   {"small", bench::holdSmallReads},
    {"write", bench::holdSequentialWrite},
};

} // namespace

int main(int argc, char** argv) try {
    namespace vfs = foundation::storage::vfs;
    std::string const wanted = argc > 2 ? argv[2] : "";
    bool const known = std::any_of(std::begin(works), std::end(works), [&](Work const& work) {
        return wanted.empty() || wanted == work.name;
    });
    if (argc > 3 || !known) {
        std::fputs("usage: bench_bytes [FOLDER [memory|files|read|small|write]]\n", stderr);
        return 2;
    }
    // Until a process has had a second thread, its reference counts are not atomic. Hosts have one.
    std::thread([] {}).join();
    TemporaryFolder const temporary(argc > 1 ? argv[1] : ".");
    auto const system = foundation::storage::provider::standard::makeStandardStorageSystem();
    vfs::StorageSystemReference const reference{std::weak_ptr<vfs::StorageSystem>(system)};
    vfs::AbsoluteIRI const location =
        vfs::toAbsoluteIRI(fl::i18n::to_ustring(temporary.path()), fl::filesystem::path());
    bench::Workplace const place{temporary.path(), vfs::Folder(location, reference),
                                 std::filesystem::read_symlink("/proc/self/exe").parent_path() /
                                     "vfs"};

    for (Work const& work : works) {
        if (wanted.empty() || wanted == work.name) {
            work.hold(place);
        }
    }
    return 0;
} catch (std::exception const& failure) {
    std::fprintf(stderr, "bench_bytes: %s\n", failure.what());
    return 1;
}
