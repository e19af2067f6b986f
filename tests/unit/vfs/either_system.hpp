#pragma once

#include <foundation/storage/provider/factories.hpp>
#include <foundation/storage/vfs/storage_system/factory_backed_storage_system.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>

#include "fake_provider.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace vfs_test {

/// What is promised of storage systems alike is tested on both.
enum class SystemKind { Pluggable, FactoryBacked };

inline auto const eitherSystem = testing::Values(SystemKind::Pluggable, SystemKind::FactoryBacked);

inline std::string nameOf(testing::TestParamInfo<SystemKind> const& kind) {
    return kind.param == SystemKind::Pluggable ? "Pluggable" : "FactoryBacked";
}

using SchemeBuilder = std::function<std::shared_ptr<provider::IProvider>()>;
using ItemBuilder =
    std::function<std::shared_ptr<provider::IProvider>(provider::StorageItem const&)>;

class FunctionFactory : public provider::PhysicalProviderFactory {
  public:
    explicit FunctionFactory(SchemeBuilder build) : build_(std::move(build)) {}
    std::shared_ptr<provider::IProvider> buildProvider(StorageIRI const&) const override {
        return build_();
    }
    void shutdownProvider() const override {}

  private:
    SchemeBuilder build_;
};

class ItemFunctionFactory : public provider::ContainerProviderFactory {
  public:
    explicit ItemFunctionFactory(ItemBuilder build) : build_(std::move(build)) {}
    std::shared_ptr<provider::IProvider>
    buildProvider(provider::StorageItem const& item) const override {
        return build_(item);
    }
    void shutdownProvider() const override {}

  private:
    ItemBuilder build_;
};

/// A system of either kind, filled in the same way.
class EitherSystem {
  public:
    EitherSystem(SystemKind kind, boost::shared_ptr<vfs::EventMgr> const& manager) {
        if (kind == SystemKind::Pluggable) {
            owner_ = pluggable_ = std::make_shared<vfs::PluggableStorageSystem>(manager);
        } else {
            owner_ = backed_ = std::make_shared<vfs::ProviderFactoryBackedStorageSystem>(manager);
        }
    }

    void serve(std::string const& scheme, SchemeBuilder build) const {
        if (pluggable_) {
            pluggable_->registerPhysicalProvider(scheme, std::move(build));
        } else {
            serve(scheme, std::make_shared<FunctionFactory>(std::move(build)));
        }
    }
    /// Only a factory-backed system shuts the factory down.
    void serve(std::string const& scheme,
               std::shared_ptr<provider::PhysicalProviderFactory> const& factory) const {
        if (pluggable_) {
            pluggable_->registerPhysicalProvider(scheme, [factory, scheme] {
                return factory->buildProvider(StorageIRI(fl::i18n::to_ustring(scheme + ":/")));
            });
        } else {
            backed_->registerProviderFactory(scheme, factory);
        }
    }
    void serveInside(std::string const& scheme, ItemBuilder build) const {
        if (pluggable_) {
            pluggable_->registerContainerProvider(scheme, std::move(build));
        } else {
            backed_->registerProviderFactory(
                scheme, std::make_shared<ItemFunctionFactory>(std::move(build)));
        }
    }
    void stopServing(std::string const& scheme) const {
        pluggable_ ? pluggable_->unregisterProvider(scheme) : backed_->unregisterFactory(scheme);
    }

    std::shared_ptr<vfs::StorageSystem> const& get() const { return owner_; }
    vfs::StorageSystemReference reference() const {
        return vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>(owner_));
    }
    /// Destroys the system.
    void reset() {
        pluggable_.reset();
        backed_.reset();
        owner_.reset();
    }

  private:
    std::shared_ptr<vfs::PluggableStorageSystem> pluggable_;
    std::shared_ptr<vfs::ProviderFactoryBackedStorageSystem> backed_;
    std::shared_ptr<vfs::StorageSystem> owner_;
};

} // namespace vfs_test
