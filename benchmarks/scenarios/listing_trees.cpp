#include "listing_trees.hpp"

#include "contest.hpp"

#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace bench {

namespace {

/// A folder held open, for making and removing things in it by name.
class OpenFolder {
  public:
    explicit OpenFolder(std::string const& path) : OpenFolder(AT_FDCWD, path.c_str()) {}
    OpenFolder(int parent, char const* name)
        : number_(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (number_ < 0) {
            fail(name);
        }
    }
    OpenFolder(OpenFolder&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    OpenFolder& operator=(OpenFolder&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~OpenFolder() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }

    void makeFile(char const* name) const {
        int const file = ::openat(number_, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (file < 0 || ::close(file) != 0) {
            fail(name);
        }
    }
    OpenFolder makeFolder(char const* name) const {
        if (::mkdirat(number_, name, 0755) != 0) {
            fail(name);
        }
        return OpenFolder(number_, name);
    }

  private:
    int number_;
};

std::string numbered(char const* format, std::size_t number) {
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

OpenFolder makeRoot(std::filesystem::path const& path) {
    std::filesystem::create_directory(path);
    return OpenFolder(path.string());
}

constexpr char const* link = "level";

} // namespace

ListedTree::ListedTree(std::filesystem::path path, std::size_t entries)
    : path_(std::move(path)),
      entries_(entries) {}

ListedTree::~ListedTree() {
    // A chain is shortened from its end next to the root: it may be deeper than a recursion that
    // holds a descriptor at each level can go.
    std::error_code error;
    std::filesystem::path const first = path_ / link;
    std::filesystem::path const rest = path_ / "rest";
    while (std::filesystem::exists(first / link, error)) {
        std::filesystem::rename(first / link, rest, error);
        std::filesystem::remove(first, error);
        std::filesystem::rename(rest, first, error);
        if (error) {
            return;
        }
    }
    std::filesystem::remove_all(path_, error);
}

void ListedTree::require(std::size_t counted) const {
    if (counted != entries_) {
        throw std::runtime_error("a contender counted " + std::to_string(counted) + " of " +
                                 std::to_string(entries_) + " entries");
    }
}

ListedTree makeFlatTree(std::filesystem::path const& path, std::size_t files) {
    OpenFolder const root = makeRoot(path);
    for (std::size_t i = 0; i < files; ++i) {
        root.makeFile(numbered("file-%07zu.data", i).c_str());
    }
    return {path, files};
}

ListedTree makeWideTree(std::filesystem::path const& path) {
    constexpr std::size_t outer = 100;
    constexpr std::size_t inner = 100;
    constexpr std::size_t files = 20;
    OpenFolder const root = makeRoot(path);
    for (std::size_t i = 0; i < outer; ++i) {
        OpenFolder const folder = root.makeFolder(numbered("folder-%03zu", i).c_str());
        for (std::size_t j = 0; j < inner; ++j) {
            OpenFolder const leaf = folder.makeFolder(numbered("folder-%03zu", j).c_str());
            for (std::size_t k = 0; k < files; ++k) {
                leaf.makeFile(numbered("file-%07zu.data", k).c_str());
            }
        }
    }
    return {path, outer + outer * inner + outer * inner * files};
}

ListedTree makeDeepTree(std::filesystem::path const& path) {
    constexpr std::size_t levels = 2000;
    OpenFolder at = makeRoot(path);
    for (std::size_t i = 0; i < levels; ++i) {
        at = at.makeFolder(link);
    }
    return {path, levels};
}

} // namespace bench
