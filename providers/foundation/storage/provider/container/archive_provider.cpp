#include <foundation/storage/provider/container/archive_provider.hpp>

namespace foundation::storage::provider::container {

using Kinds = Selection::Kinds;
using Cursor = std::unique_ptr<IFolderEntryIterator>;

Cursor ArchiveProvider::listAll(StorageIRI const& location, ustring const& filter) const {
    return list(location, {Kinds::All, true, false, filter});
}
Cursor ArchiveProvider::listFiles(StorageIRI const& location, ustring const& filter) const {
    return list(location, {Kinds::Files, true, false, filter});
}
Cursor ArchiveProvider::listFolders(StorageIRI const& location, ustring const& filter) const {
    return list(location, {Kinds::Folders, true, false, filter});
}
Cursor ArchiveProvider::listAllNamesOnly(StorageIRI const& location, ustring const& filter) const {
    return list(location, {Kinds::All, false, false, filter});
}
Cursor ArchiveProvider::listFilesNamesOnly(StorageIRI const& location,
                                           ustring const& filter) const {
    return list(location, {Kinds::Files, false, false, filter});
}
Cursor ArchiveProvider::listFoldersNamesOnly(StorageIRI const& location,
                                             ustring const& filter) const {
    return list(location, {Kinds::Folders, false, false, filter});
}
Cursor ArchiveProvider::listAllRecursive(StorageIRI const& location, ustring const& filter) const {
    return list(location, {Kinds::All, true, true, filter});
}
Cursor ArchiveProvider::listAllRecursiveNamesOnly(StorageIRI const& location,
                                                  ustring const& filter) const {
    return list(location, {Kinds::All, false, true, filter});
}

std::string octal(unsigned mode) {
    std::string text(4, '0');
    for (auto digit = text.rbegin(); digit != text.rend(); ++digit, mode >>= 3) {
        *digit = static_cast<char>('0' + (mode & 7U));
    }
    return text;
}

} // namespace foundation::storage::provider::container
