#include <foundation/storage/vfs/resources/file_or_folder.hpp>

#include <boost/variant/apply_visitor.hpp>

namespace foundation::storage::vfs {

namespace {

bool itemExists(File const& file) {
    return file.fileExists();
}

bool itemExists(Folder const& folder) {
    return folder.folderExists();
}

bool itemHasParent(File const&) {
    return true;
}

bool itemHasParent(Folder const& folder) {
    return folder.hasParent();
}

} // namespace

AbsoluteIRI getLocation(FileOrFolder const& item) {
    return boost::apply_visitor([](auto const& held) { return held.getLocation(); }, item);
}

CanonicalAbsoluteIRI getCanonicalLocation(FileOrFolder const& item) {
    return boost::apply_visitor([](auto const& held) { return held.getCanonicalLocation(); }, item);
}

ustring getName(FileOrFolder const& item) {
    return boost::apply_visitor([](auto const& held) { return held.getName(); }, item);
}

bool exists(FileOrFolder const& item) {
    return boost::apply_visitor([](auto const& held) { return itemExists(held); }, item);
}

bool hasParent(FileOrFolder const& item) {
    return boost::apply_visitor([](auto const& held) { return itemHasParent(held); }, item);
}

Folder getParent(FileOrFolder const& item) {
    return boost::apply_visitor([](auto const& held) { return held.getParent(); }, item);
}

boost::posix_time::ptime getLastModified(FileOrFolder const& item) {
    return boost::apply_visitor(
        [](auto const& held) { return held.getAttributes().getLastModified(); }, item);
}

bool isWritable(FileOrFolder const& item) {
    return boost::apply_visitor([](auto const& held) { return held.getAttributes().isWritable(); },
                                item);
}

StorageSystemReference getStorageSystem(FileOrFolder const& item) {
    return boost::apply_visitor([](auto const& held) { return held.getStorageSystem(); }, item);
}

} // namespace foundation::storage::vfs
