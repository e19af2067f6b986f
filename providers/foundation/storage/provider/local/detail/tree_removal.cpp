#include <foundation/storage/provider/local/detail/tree_removal.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/folder_within.hpp>

#include <fl/i18n/conversion.hpp>

#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::local::detail {

namespace {

/// How often a folder is emptied that has entries again each time: somebody fills it, or its file
/// system skips entries while others are removed.
constexpr unsigned mostAttempts = 64;

int removeFileEntry(int folder, char const* name) noexcept {
    return ::unlinkat(folder, name, 0) == 0 ? 0 : errno;
}

int removeFolderEntry(int folder, char const* name) noexcept {
    return ::unlinkat(folder, name, AT_REMOVEDIR) == 0 ? 0 : errno;
}

bool isFolder(int folder, char const* name) noexcept {
    struct stat item {};
    return statItem(folder, name, false, item) == 0 && S_ISDIR(item.st_mode);
}

bool isEntryName(char const* name) noexcept {
    return name[0] != '\0' && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
           std::strchr(name, '/') == nullptr;
}

} // namespace

void TreeRemoval::run() {
    names_.assign(root_.name()).push_back('\0');
    levels_.assign(1, Level{.subfolders = 0, .isRead = true});
    for (;;) {
        if (hasSubfolder()) {
            enter();
        } else if (!levels_.back().isRead) {
            readOn();
        } else if (!isAboveRoot()) {
            leave();
        } else {
            return;
        }
    }
}

/// The last one.
char const* TreeRemoval::subfolder() const noexcept {
    std::size_t const nul = names_.rfind('\0', names_.size() - 2); // npos + 1 is 0
    return names_.c_str() + nul + 1;
}

void TreeRemoval::enter() {
    FileDescriptor opened;
    int error = openFolderWithin(folder(), subfolder(), opened);
    while ((error == EMFILE || error == ENFILE) && window_.size() > 1) {
        makeRoom();
        error = openFolderWithin(folder(), subfolder(), opened);
    }
    switch (error) {
    case 0:
        return goIn(std::move(opened));
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
        return removeSubfolder(ENOTEMPTY); // not a folder any more
    case EACCES:
    case EPERM:
        return removeSubfolder(error); // it may be empty
    case EXDEV:
        fail(EBUSY, subfolder());
    default:
        fail(error, subfolder());
    }
}

void TreeRemoval::goIn(FileDescriptor folder) {
    if (window_.full()) {
        makeRoom();
    }
    levels_.push_back({.subfolders = names_.size()});
    window_.push(depth(), std::move(folder));
}

void TreeRemoval::readOn() {
    ssize_t const got =
        uninterrupted([&] { return ::getdents64(folder(), buffer_, sizeof buffer_); });
    if (got < 0 && errno != ENOENT) {
        fail(errno, {});
    }
    if (got <= 0) { // ENOENT: it was removed, so it is empty
        levels_.back().isRead = true;
        return;
    }
    for (char const* in = buffer_, * const end = buffer_ + got; in < end;) {
        auto const* const record = reinterpret_cast<dirent64 const*>(in);
        char const* const name = in + offsetof(dirent64, d_name); // may be longer than d_name
        in += record->d_reclen;
        if (isEntryName(name) && (record->d_type == DT_DIR || !removeUnlessFolder(name))) {
            names_.append(name, std::strlen(name) + 1);
        }
    }
}

/// Also where the kind is not known: a folder is not removed so.
bool TreeRemoval::removeUnlessFolder(char const* name) {
    int const error = removeFileEntry(folder(), name);
    if (error == 0 || error == ENOENT) {
        return true;
    }
    // Some file systems say EPERM of a folder.
    if (error != EISDIR && !(error == EPERM && isFolder(folder(), name))) {
        fail(error, name);
    }
    return false;
}

void TreeRemoval::leave() {
    FileDescriptor left = window_.take(depth());
    levels_.pop_back();
    if (!isAboveRoot() && window_.empty()) {
        climbFrom(left);
    }
    left.close();
    removeSubfolder(ENOTEMPTY);
}

/// Opens the current folder again, from the one below it that is `folder`, unless that has been
/// moved to another one. What is left in the current folder is read from its beginning.
void TreeRemoval::climbFrom(FileDescriptor const& folder) {
    FileDescriptor above(
        uninterrupted([&] { return ::openat(folder.get(), "..", readFolderFlags); }));
    if (!above) {
        fail(errno, {});
    }
    FolderIdentity reached;
    if (int const error = identifyBriefly(above.get(), reached)) {
        fail(error, {});
    }
    if (!reached.looksLike(levels_.back().identity)) {
        fail(EBUSY, subfolder());
    }
    window_.push(depth(), std::move(above));
}

/// Removes the last subfolder, which was emptied, or is no folder any more. Keeps it, to be emptied
/// again, where it is not empty and that is no other failure.
void TreeRemoval::removeSubfolder(int errorWhereNotEmpty) {
    char const* const name = subfolder();
    int error = removeFolderEntry(folder(), name);
    if (error == ENOTDIR && !isAboveRoot()) {
        error = removeFileEntry(folder(), name);
    }
    if (error == ENOTEMPTY || error == EEXIST || error == EISDIR) {
        error = errorWhereNotEmpty;
        if (error == ENOTEMPTY && ++levels_.back().attempts < mostAttempts) {
            return;
        }
    }
    if (error != 0 && (error != ENOENT || isAboveRoot())) {
        fail(error, name);
    }
    names_.resize(static_cast<std::size_t>(name - names_.c_str()));
    levels_.back().attempts = 0;
}

/// Gives up the descriptor of the outermost folder, which is found again from below.
/// REQUIRES: one is held.
void TreeRemoval::makeRoom() noexcept {
    // No folder has the identity that there is without an answer. Briefly is enough: its number is
    // its own as long as a folder is in it.
    identifyBriefly(window_.outermost(), levels_[window_.outermostDepth()].identity);
    window_.dropOutermost();
}

/// Of an entry of the current folder, or of that folder itself.
StorageIRI TreeRemoval::locationOf(std::string_view name) const {
    fl::i18n::ustring path;
    auto const append = [&](std::string_view step) {
        if (!path.empty()) {
            path += u'/';
        }
        fl::i18n::appendStorageName(path, step);
    };
    // The location stands for the root, which is the second level.
    for (std::size_t level = 2; level < levels_.size(); ++level) {
        std::string_view const outer(names_.data(), levels_[level].subfolders - 1);
        append(outer.substr(outer.rfind('\0') + 1));
    }
    if (!name.empty() && !isAboveRoot()) {
        append(name);
    }
    return path.empty() ? location_ : StorageIRI(location_, path);
}

void TreeRemoval::fail(int error, std::string_view name) const {
    throwErrno(error, locationOf(name));
}

} // namespace foundation::storage::provider::local::detail
