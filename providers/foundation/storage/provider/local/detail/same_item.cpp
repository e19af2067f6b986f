#include <foundation/storage/provider/local/detail/same_item.hpp>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>

namespace foundation::storage::provider::local::detail {

namespace {

struct Entry {
    dev_t device;
    ino_t folder;
    std::string name;

    friend bool operator==(Entry const&, Entry const&) = default;
    bool sharesFolderWith(Entry const& other) const noexcept {
        return device == other.device && folder == other.folder;
    }
};

std::optional<std::string> realPath(std::string const& path) {
    std::unique_ptr<char, decltype(&std::free)> const real(::realpath(path.c_str(), nullptr),
                                                           &std::free);
    return real ? std::optional<std::string>(real.get()) : std::nullopt;
}

/// The entry that a path leads to, links followed; the link's own where it leads nowhere.
std::optional<Entry> entryOf(std::string const& path) {
    std::optional<std::string> real = realPath(path);
    if (!real) {
        std::size_t const slash = path.rfind('/');
        std::optional<std::string> const folder =
            slash == std::string::npos ? std::nullopt : realPath(path.substr(0, slash + 1));
        if (!folder) {
            return std::nullopt;
        }
        real = *folder + path.substr(slash);
    }
    std::size_t const slash = real->rfind('/');
    struct stat folder {};
    if (statItem(AT_FDCWD, slash == 0 ? "/" : real->substr(0, slash).c_str(), true, folder) != 0) {
        return std::nullopt;
    }
    return Entry{folder.st_dev, folder.st_ino, real->substr(slash + 1)};
}

} // namespace

Relation relationOf(KernelPath const& a, KernelPath const& b) {
    struct stat first {};
    struct stat second {};
    if (statFollowed(a, first) != 0 || statFollowed(b, second) != 0 ||
        first.st_dev != second.st_dev || first.st_ino != second.st_ino) {
        return Relation::Distinct;
    }
    std::optional<Entry> const here = entryOf(a.text());
    std::optional<Entry> const there = entryOf(b.text());
    if (!here || !there || *here == *there) {
        return Relation::SameEntry;
    }
    if (!S_ISDIR(first.st_mode) && first.st_nlink > 1) {
        return Relation::HardLink;
    }
    // One link only, so the two names are one entry: another mount shows the folder a second time,
    // or the folder takes both names for one.
    return here->sharesFolderWith(*there) ? Relation::OtherSpelling : Relation::SameEntry;
}

} // namespace foundation::storage::provider::local::detail
