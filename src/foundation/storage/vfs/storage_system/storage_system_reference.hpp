#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/storage_system/storage_system.hpp>

#include <functional>
#include <memory>

namespace foundation::storage::vfs {

/// A handle on a system that does not keep it alive. The system is resolved afresh on each call, on
/// the calling thread, and lives at least as long as that call. Immutable; may be shared by
/// threads.
///
/// Where the system is gone, operations throw std::runtime_error with the text "StorageSystem has
/// been destroyed" (as AnonymousInternalException); with an empty resolver, std::bad_function_call.
class FOUNDATION_EXPORT StorageSystemReference : public StorageSystem {
  public:
    using Resolver = std::function<std::shared_ptr<StorageSystem>()>;

    StorageSystemReference(std::weak_ptr<StorageSystem> system);
    StorageSystemReference(Resolver resolver);
    StorageSystemReference(StorageSystemReference const&) = default;
    StorageSystemReference(StorageSystemReference&&) noexcept = default;
    StorageSystemReference& operator=(StorageSystemReference const&) = default;
    StorageSystemReference& operator=(StorageSystemReference&&) noexcept = default;
    ~StorageSystemReference() override;

    /// Provider exceptions are translated.
    std::shared_ptr<provider::IProvider>
    buildProvider(provider::StorageIRI const& location) const override;
    boost::shared_ptr<EventMgr> getEventMgr() const override;

    /// Whether both resolve to one system; two that are gone are equal.
    bool operator==(StorageSystemReference const& other) const;
    bool operator!=(StorageSystemReference const& other) const { return !(*this == other); }

  private:
    std::shared_ptr<StorageSystem> resolve() const;

    Resolver resolver_;
};

} // namespace foundation::storage::vfs
