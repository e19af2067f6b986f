#include <foundation/storage/provider/local/detail/ancestry.hpp>

#include <foundation/storage/provider/local/detail/same_item.hpp>

#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string>
#include <utility>

namespace foundation::storage::provider::local::detail {

namespace {

FileDescriptor openFolder(int base, char const* path) noexcept {
    return FileDescriptor(
        uninterrupted([&] { return ::openat(base, path, O_PATH | O_DIRECTORY | O_CLOEXEC); }));
}

/// The folder at a path, or else the one that it would be made in.
FileDescriptor folderOrParent(KernelPath const& path) {
    FileDescriptor folder = openFolder(path.folder(), path.path());
    if (!folder) {
        std::string const text = path.path();
        std::size_t const slash = text.rfind('/');
        folder = openFolder(path.folder(),
                            slash == std::string::npos ? "." : text.substr(0, slash + 1).c_str());
    }
    return folder;
}

/// The last `levels` names of where a path leads, with a slash before each; empty where that is not
/// known.
std::string lastNames(std::string const& path, std::size_t levels) {
    std::unique_ptr<char, decltype(&std::free)> const real(::realpath(path.c_str(), nullptr),
                                                           &std::free);
    if (!real) {
        return {};
    }
    std::string const text = real.get();
    std::size_t begin = text.size();
    for (; levels != 0 && begin != 0; --levels) {
        begin = text.rfind('/', begin - 1);
    }
    return levels == 0 ? text.substr(begin) : std::string();
}

} // namespace

std::optional<std::size_t> levelsBelow(FileDescriptor folder, struct stat const& outer) noexcept {
    struct stat below {};
    struct stat here {};
    for (std::size_t levels = 0; folder && ::fstat(folder.get(), &here) == 0; ++levels) {
        if (sameInode(here, outer)) {
            return levels;
        }
        if (sameInode(here, below)) { // the root is its own
            return std::nullopt;
        }
        below = here;
        folder = openFolder(folder.get(), "..");
    }
    return std::nullopt;
}

bool wouldCopyIntoItself(KernelPath const& from, KernelPath const& to) {
    struct stat source {};
    struct stat destination {};
    if (statItem(from, false, source) != 0) {
        return false;
    }
    if (levelsBelow(folderOrParent(to), source)) {
        return true;
    }
    if (statItem(to, true, destination) != 0) {
        return false;
    }
    auto const levels = levelsBelow(openFolder(from.folder(), from.path()), destination);
    if (!levels) {
        return false;
    }
    // Where the names are not known this is the source itself: then no copy is safe.
    std::string const again = from.path() + lastNames(from.text(), *levels);
    struct stat item {};
    return statItem(from.folder(), again.c_str(), false, item) == 0 && S_ISDIR(item.st_mode);
}

} // namespace foundation::storage::provider::local::detail
