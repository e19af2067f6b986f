#pragma once

#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <memory>
#include <utility>

namespace foundation::storage::vfs::detail {

/// What a File and a Folder hold, shared by copies and never changed.
struct Handle {
    provider::StorageItem item;
    StorageSystemReference storageSystem;
    bool canonicalFlag;

    AbsoluteIRI getLocation() const;
    CanonicalAbsoluteIRI getCanonicalLocation() const;
};

/// Asks the system for the location's provider.
Handle makeHandle(AbsoluteIRI const& location, StorageSystemReference storageSystem,
                  bool canonicalFlag);

/// Exchanges what two handles name; each keeps its storage system and its flag.
template<class Impl>
void swapItems(std::shared_ptr<Impl const>& a, std::shared_ptr<Impl const>& b) {
    auto first = std::make_shared<Impl const>(Impl{{b->item, a->storageSystem, a->canonicalFlag}});
    b = std::make_shared<Impl const>(Impl{{a->item, b->storageSystem, b->canonicalFlag}});
    a = std::move(first);
}

} // namespace foundation::storage::vfs::detail
