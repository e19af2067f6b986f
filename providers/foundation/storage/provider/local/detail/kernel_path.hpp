#pragma once

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <string>
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

/// An item as an entry: the open folder that holds it, and its name there. What is done through one
/// value happens in one folder, whatever is renamed meanwhile.
class FolderSlot {
  public:
    /// Throws provider::Exception naming `location` where the folder cannot be opened.
    FolderSlot(KernelPath const& path, StorageIRI const& location);
    explicit FolderSlot(StorageIRI const& location) : FolderSlot(KernelPath(location), location) {}
    /// The same for an absolute path, as realpath(3) gives it.
    FolderSlot(std::string const& absolutePath, StorageIRI const& location);

    int folder() const noexcept { return folder_.get(); }
    char const* name() const noexcept { return name_.c_str(); }

  private:
    FolderSlot(int base, std::string const& path, StorageIRI const& location);

    FileDescriptor folder_;
    std::string name_;
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
