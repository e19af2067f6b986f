#include <foundation/storage/provider/local/detail/same_item.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>

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

/// The entry that a path leads to, with `follow` behind links; the link's own where it leads
/// nowhere.
std::optional<Entry> entryOf(std::string const& path, bool follow) {
    std::optional<std::string> real = follow ? realPath(path) : std::nullopt;
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

/// `same`: with no link followed, too.
Relation relationOfOneItem(KernelPath const& a, KernelPath const& b, struct stat const& item,
                           bool same, bool follow) {
    std::optional<Entry> const here = entryOf(a.text(), follow);
    std::optional<Entry> const there = entryOf(b.text(), follow);
    if (!here || !there || *here == *there) {
        return Relation::SameEntry;
    }
    if (!S_ISDIR(item.st_mode) && item.st_nlink > 1) {
        // A link to a file is not the file's second name; replacing either leaves another one.
        return same ? Relation::HardLink : Relation::Distinct;
    }
    // One link only, so the two names are one entry: another mount shows the folder a second time,
    // or the folder takes both names for one.
    return same && here->sharesFolderWith(*there) ? Relation::OtherSpelling : Relation::SameEntry;
}

} // namespace

bool sameInode(struct stat const& a, struct stat const& b) noexcept {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

int relationOf(KernelPath const& a, KernelPath const& b, LinkPairs links, Relation& result) {
    result = Relation::Distinct;
    struct stat first {};
    struct stat second {};
    int error = statItem(a, false, first);
    error = error == 0 ? statItem(b, false, second) : error;
    if (error != 0) {
        return meansAbsent(error) ? 0 : error;
    }
    bool const same = sameInode(first, second);
    bool const follow =
        links == LinkPairs::Followed || !S_ISLNK(first.st_mode) || !S_ISLNK(second.st_mode);
    if (follow) {
        error = statFollowed(a, first);
        error = error == 0 ? statFollowed(b, second) : error;
        if (error != 0) {
            // A link that leads to where nobody may look leads elsewhere.
            return error == EACCES || meansAbsent(error) ? 0 : error;
        }
    }
    if (sameInode(first, second)) {
        result = relationOfOneItem(a, b, first, same, follow);
    }
    return 0;
}

} // namespace foundation::storage::provider::local::detail
