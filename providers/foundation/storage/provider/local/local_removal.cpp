#include <foundation/storage/provider/local/local_removal.hpp>

#include <foundation/storage/provider/local/detail/failures.hpp>
#include <foundation/storage/provider/local/detail/tree_removal.hpp>
#include <foundation/storage/provider/local/local_folders.hpp>

namespace foundation::storage::provider::local {

void removeLocalTree(StorageIRI const& location, bool followLinks) {
    detail::KernelPath const path(location);
    if (path.text() == "/") {
        throw Exception(ErrorCode::ResourceInUse, location);
    }
    if (path.text().ends_with("/.") || path.text().ends_with("/..")) {
        throw Exception(ErrorCode::InvalidLocation, location); // not the name of an entry
    }
    struct stat item {};
    if (int const error = statItem(path, false, item)) {
        detail::throwErrno(error, location);
    }
    if (!S_ISDIR(item.st_mode)) {
        return removeEmptyLocalFolder(location, followLinks);
    }
    detail::FolderSlot const root(path, location);
    detail::TreeRemoval(root, location).run();
}

} // namespace foundation::storage::provider::local
