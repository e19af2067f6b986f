#pragma once

#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

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

} // namespace foundation::storage::vfs::detail
