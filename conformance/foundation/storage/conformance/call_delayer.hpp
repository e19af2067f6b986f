#pragma once

#include <foundation/storage/conformance/provider_decorator.hpp>

#include <chrono>
#include <functional>
#include <set>

namespace foundation::storage::conformance {

/// Runs before a call, on the thread that makes it, without a lock held. What it throws reaches the
/// caller. The location is null for FlushFilesystem alone.
using CallAction = std::function<void(Operation, provider::StorageIRI const* location)>;

/// A provider that waits, or does something else, before it does what it is asked: a slow storage,
/// or one that stands still at a gate until a test lets it go on. Made by
/// decorate<CallDelayer>(provider, duration) or decorate<CallDelayer>(provider, action), for all
/// operations, those of cursors and streams included, or, with a third argument, for those of a
/// set.
///
/// Never changes once made. Calls wait beside each other, so that it is as safe on many threads as
/// the inner provider and the action are.
class FOUNDATION_EXPORT CallDelayer : public ProviderDecorator {
  public:
    using Operations = std::set<Operation>;
    static Operations allOperations();

  protected:
    CallDelayer(std::shared_ptr<provider::IProvider> inner, std::chrono::nanoseconds duration,
                Operations operations = allOperations());
    CallDelayer(std::shared_ptr<provider::IProvider> inner, CallAction action,
                Operations operations = allOperations());
    void before(Operation operation, provider::StorageIRI const* location) const override;

  private:
    CallAction const action_;
    Operations const operations_;
};

} // namespace foundation::storage::conformance
