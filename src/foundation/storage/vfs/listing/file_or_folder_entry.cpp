#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>

#include <boost/variant/apply_visitor.hpp>

namespace foundation::storage::vfs {

namespace {

File const& handleOf(FileEntry const& entry) {
    return entry.getFile();
}

Folder const& handleOf(FolderEntry const& entry) {
    return entry.getFolder();
}

} // namespace

ustring getName(FileOrFolderEntry const& entry) {
    return boost::apply_visitor([](auto const& held) { return held.getName(); }, entry);
}

AbsoluteIRI getLocation(FileOrFolderEntry const& entry) {
    return boost::apply_visitor([](auto const& held) { return handleOf(held).getLocation(); },
                                entry);
}

CanonicalAbsoluteIRI getCanonicalLocation(FileOrFolderEntry const& entry) {
    return boost::apply_visitor(
        [](auto const& held) { return handleOf(held).getCanonicalLocation(); }, entry);
}

} // namespace foundation::storage::vfs
