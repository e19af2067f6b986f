#include <foundation/storage/vfs/listing/folder_entry.hpp>

#include <foundation/storage/vfs/listing/detail/entry_impl.hpp>

#include <utility>

namespace foundation::storage::vfs {

struct FolderEntry::Impl : detail::EntryImpl<Folder, provider::FolderAttributes> {
    using EntryImpl::EntryImpl;
};

FolderEntry::FolderEntry(Folder folder, ustring name)
    : impl_(std::make_shared<Impl const>(std::move(folder), std::move(name))) {}

FolderEntry::FolderEntry(Folder folder) : impl_(std::make_shared<Impl const>(std::move(folder))) {}

FolderEntry::FolderEntry(Folder folder, ustring name, provider::FolderAttributes attributes)
    : impl_(std::make_shared<Impl const>(std::move(folder), std::move(name), attributes)) {}

ustring const& FolderEntry::getName() const noexcept {
    return impl_->name;
}

Folder const& FolderEntry::getFolder() const {
    return impl_->handle.get();
}

provider::FolderAttributes const& FolderEntry::getAttributes() const {
    return impl_->attributes.get();
}

} // namespace foundation::storage::vfs
