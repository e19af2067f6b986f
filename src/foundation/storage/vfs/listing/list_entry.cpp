#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <utility>

namespace foundation::storage::vfs {

struct ListEntry::Impl {
    Impl(Folder listed, ustring given) : folder(std::move(listed)), name(std::move(given)) {}

    Folder const folder;
    ustring const name;
};

ListEntry::ListEntry(Folder folder, ustring name)
    : impl_(std::make_shared<Impl const>(std::move(folder), std::move(name))) {}

ustring const& ListEntry::getName() const noexcept {
    return impl_->name;
}

ustring ListEntry::getFilename() const {
    ustring const& name = impl_->name;
    std::size_t const slash = name.rfind(u'/');
    return slash == ustring::npos || name.size() == 1 ? name : name.substr(slash + 1);
}

AbsoluteIRI ListEntry::getLocation() const {
    return AbsoluteIRI(impl_->folder.getLocation(), impl_->name);
}

FileOrFolder ListEntry::getFileOrFolder() const {
    AbsoluteIRI const location = getLocation();
    StorageSystemReference system = impl_->folder.getStorageSystem();
    auto const nothing = static_cast<std::uint32_t>(provider::ExistsResult::Nothing);
    auto const found = static_cast<std::uint32_t>(exists(location, system));
    if ((found & ~nothing) != 0) {
        return Folder(location, std::move(system));
    }
    return File(location, std::move(system));
}

bool ListEntry::operator==(ListEntry const& other) const {
    return getLocation() == other.getLocation();
}

bool ListEntry::operator<(ListEntry const& other) const {
    return getLocation() < other.getLocation();
}

} // namespace foundation::storage::vfs
