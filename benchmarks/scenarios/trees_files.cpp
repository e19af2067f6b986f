#include "trees_files.hpp"

#include "contest.hpp"

#include <array>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr std::size_t folders = 200;
constexpr std::size_t fileSize = 4096;

void makeFile(std::string const& path) {
    static constexpr std::array<char, fileSize> content{'4', 'K'};
    int const file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file < 0 ||
        ::write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size()) ||
        ::close(file) != 0) {
        fail(path);
    }
}

} // namespace

void makeFileTree(std::filesystem::path const& path) {
    std::filesystem::create_directory(path);
    for (std::size_t i = 0; i < folders; ++i) {
        std::filesystem::path const folder = path / ("folder-" + std::to_string(1000 + i));
        std::filesystem::create_directory(folder);
        for (std::size_t j = 0; j < treeFiles / folders; ++j) {
            makeFile((folder / ("file-" + std::to_string(1000 + j) + ".data")).string());
        }
    }
}

void requireFileTree(std::filesystem::path const& path) {
    std::size_t whole = 0;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(path)) {
        whole += entry.is_regular_file() && entry.file_size() == fileSize ? 1 : 0;
    }
    if (whole != treeFiles) {
        throw std::runtime_error(path.string() + " has " + std::to_string(whole) + " whole files");
    }
}

} // namespace bench
