#pragma once

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace foundation::storage::provider::local::detail {

/// A location as the `...at` system calls take it: a folder's descriptor and a path from there. For
/// nearly every location that is AT_FDCWD and the whole path; of one longer than the kernel takes
/// in one call, the front is opened, so that the depth of a tree has no limit.
///
/// A front that does not exist gives a path for which every call answers ENOENT; one that cannot be
/// opened for another reason throws provider::Exception, as does a location that has no path here.
/// Without trailing slashes: these would make the kernel follow a link.
class KernelPath {
  public:
    explicit KernelPath(StorageIRI const& location);

    int folder() const noexcept;
    char const* path() const noexcept { return text_.c_str() + offset_; }
    /// The whole path.
    std::string const& text() const noexcept { return text_; }

  private:
    void openFront(StorageIRI const& location);

    std::string text_;
    std::size_t offset_ = 0;
    FileDescriptor front_;
};

/// An item as an entry of a folder. A held slot has the folder open: what is done through it
/// happens in one folder, whatever is renamed meanwhile. One that is not held saves opening and
/// closing the folder, and finds it by its path each time: for work that is done by a single call.
class FolderSlot {
  public:
    enum class Folder { Held, ByPath };

    /// Throws provider::Exception naming `location` where a folder to hold cannot be opened. The
    /// folder of a path longer than the kernel takes in one call is always held.
    FolderSlot(KernelPath const& path, StorageIRI const& location, Folder folder = Folder::Held);
    explicit FolderSlot(StorageIRI const& location) : FolderSlot(KernelPath(location), location) {}
    /// The same for an absolute path, as realpath(3) gives it.
    FolderSlot(std::string const& absolutePath, StorageIRI const& location,
               Folder folder = Folder::Held);

    /// Opens the folder, unless it is open. The error number, or 0.
    int hold() noexcept;
    /// Becomes the entry of another name in the same folder.
    void rename(std::string_view name) { path_.replace(name_, std::string::npos, name); }

    /// What the entry is to the `...at` system calls.
    int folder() const noexcept { return folder_ ? folder_.get() : AT_FDCWD; }
    char const* name() const noexcept { return folder_ ? path_.c_str() + name_ : path_.c_str(); }
    /// What the folder itself is to them, from folder().
    char const* folderPath() const noexcept { return folder_ ? "." : parent_.c_str(); }

  private:
    FolderSlot(int base, std::string path, StorageIRI const& location, Folder folder);
    int open(int base) noexcept;

    std::string path_;
    std::string parent_;
    std::size_t name_ = 0; ///< where the last component begins
    FileDescriptor folder_;
};

/// fstatat(2) with or without following a link in last place; the error number, or 0.
int statItem(int folder, char const* path, bool follow, struct stat& result) noexcept;
inline int statItem(KernelPath const& path, bool follow, struct stat& result) noexcept {
    return statItem(path.folder(), path.path(), follow, result);
}
inline int statItem(FolderSlot const& slot, bool follow, struct stat& result) noexcept {
    return statItem(slot.folder(), slot.name(), follow, result);
}
/// Follows a link; of one that leads nowhere, or in a circle, its own.
int statFollowed(KernelPath const& path, struct stat& result) noexcept;

} // namespace foundation::storage::provider::local::detail
