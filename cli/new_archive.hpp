#pragma once

#include "location.hpp"

#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <vector>

namespace cli {

/// Archives that did not exist, and were begun as empty files so that something can be written into
/// them. One that is still empty at the end, because nothing came into it, goes again.
class NewArchives {
  public:
    using System = foundation::storage::vfs::StorageSystemReference;

    /// Begins the archive that a location lies in, where it is missing and of a kind that can be
    /// written; and so those that it lies in itself. Throws what the storage throws.
    void begin(System const& system, Location const& location);
    /// Takes away those that nothing has come into. Behind the flush of all others.
    void removeEmpty() noexcept;

  private:
    struct Archive {
        System system;
        foundation::storage::vfs::AbsoluteIRI location;
    };

    void begin(System const& system, foundation::storage::vfs::AbsoluteIRI const& location);

    std::vector<Archive> begun_;
};

} // namespace cli
