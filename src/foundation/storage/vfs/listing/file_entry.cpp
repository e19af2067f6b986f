#include <foundation/storage/vfs/listing/file_entry.hpp>

#include <foundation/storage/vfs/listing/detail/entry_impl.hpp>

#include <utility>

namespace foundation::storage::vfs {

struct FileEntry::Impl : detail::EntryImpl<File, provider::FileAttributes> {
    using EntryImpl::EntryImpl;
};

FileEntry::FileEntry(Folder folder, ustring name)
    : impl_(std::make_shared<Impl const>(std::move(folder), std::move(name))) {}

FileEntry::FileEntry(File file) : impl_(std::make_shared<Impl const>(std::move(file))) {}

FileEntry::FileEntry(Folder folder, ustring name, provider::FileAttributes attributes)
    : impl_(std::make_shared<Impl const>(std::move(folder), std::move(name), attributes)) {}

ustring const& FileEntry::getName() const noexcept {
    return impl_->name;
}

File const& FileEntry::getFile() const {
    return impl_->handle.get();
}

provider::FileAttributes const& FileEntry::getAttributes() const {
    return impl_->attributes.get();
}

} // namespace foundation::storage::vfs
