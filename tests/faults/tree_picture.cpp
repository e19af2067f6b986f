#include "tree_picture.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>

namespace fault_sweep {

namespace fs = std::filesystem;

bool PicturedItem::isFile() const noexcept {
    return S_ISREG(mode);
}

bool PicturedItem::isSameAs(PicturedItem const& other) const noexcept {
    return (mode & S_IFMT) == (other.mode & S_IFMT) && content == other.content;
}

namespace {

std::string contentOf(fs::path const& path) {
    std::ifstream in(path, std::ios_base::binary);
    std::string content(fs::file_size(path), '\0');
    in.read(content.data(), static_cast<std::streamsize>(content.size()));
    if (in.gcount() != static_cast<std::streamsize>(content.size())) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    return content;
}

} // namespace

TreePicture pictureOf(std::string const& folder) {
    TreePicture picture;
    for (fs::directory_entry const& entry : fs::recursive_directory_iterator(folder)) {
        struct stat item {};
        if (::lstat(entry.path().c_str(), &item) != 0) {
            throw std::system_error(errno, std::generic_category(), entry.path().string());
        }
        PicturedItem seen{item.st_mode,
                          {},
                          item.st_mtim.tv_sec * std::int64_t{1'000'000'000} + item.st_mtim.tv_nsec};
        if (S_ISREG(item.st_mode)) {
            seen.content = contentOf(entry.path());
        } else if (S_ISLNK(item.st_mode)) {
            seen.content = fs::read_symlink(entry.path()).string();
        }
        picture.emplace(entry.path().lexically_relative(folder).string(), std::move(seen));
    }
    return picture;
}

std::size_t countOpenDescriptors() {
    // The one that reads the folder counts each time.
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

} // namespace fault_sweep
