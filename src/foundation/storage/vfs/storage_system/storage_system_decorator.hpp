#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/storage_system/storage_system.hpp>

#include <memory>

namespace foundation::storage::vfs {

/// Base for wrapping a system. The event manager is deliberately not forwarded: a decorator that
/// does nothing more reports none, and one that wants change events overrides getEventMgr.
class FOUNDATION_EXPORT StorageSystemDecorator : public StorageSystem {
  public:
    explicit StorageSystemDecorator(std::shared_ptr<StorageSystem> wrapped);
    ~StorageSystemDecorator() override;

    std::shared_ptr<provider::IProvider>
    buildProvider(provider::StorageIRI const& location) const override;

  protected:
    StorageSystem const& wrapped() const noexcept { return *wrapped_; }

  private:
    std::shared_ptr<StorageSystem> wrapped_;
};

} // namespace foundation::storage::vfs
