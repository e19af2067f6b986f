#pragma once

#include <foundation/storage/vfs/iri/absolute_iri.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <memory>
#include <set>

namespace cli {

/// A storage system with archives that are not there yet, as they would be when they were begun:
/// empty. Everything else is that of another system. Nothing is written through it. For one thread.
class Rehearsal final : public foundation::storage::vfs::StorageSystem,
                        public std::enable_shared_from_this<Rehearsal> {
  public:
    explicit Rehearsal(foundation::storage::vfs::StorageSystemReference system);

    /// Takes the archive that a location lies in as begun, where it is missing and of a kind that
    /// can be written; and so those that it lies in itself. Throws what the storage throws, and
    /// vfs::Exception with ResourceNotFound where an archive would have no folder to be in.
    void begin(foundation::storage::vfs::AbsoluteIRI const& location);

    std::shared_ptr<foundation::storage::provider::IProvider>
    buildProvider(foundation::storage::provider::StorageIRI const& location) const override;
    boost::shared_ptr<foundation::storage::vfs::EventMgr> getEventMgr() const override;

  private:
    foundation::storage::vfs::StorageSystemReference const system_;
    std::set<foundation::storage::vfs::AbsoluteIRI> begun_;
    std::shared_ptr<foundation::storage::vfs::StorageSystem> empty_; ///< of an archive in memory
};

} // namespace cli
