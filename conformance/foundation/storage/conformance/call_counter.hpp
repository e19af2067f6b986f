#pragma once

#include <foundation/storage/conformance/provider_decorator.hpp>

#include <array>
#include <atomic>
#include <cstdint>

namespace foundation::storage::conformance {

/// A provider that counts what it is asked, also what then fails. Made by
/// decorate<CallCounter>(provider). Safe on any number of threads; a sum that is read while others
/// call is of no one moment.
class FOUNDATION_EXPORT CallCounter : public ProviderDecorator {
  public:
    std::uint64_t countOf(Operation operation) const noexcept;
    /// Of all operations, those of cursors and streams included.
    std::uint64_t countOfAll() const noexcept;
    /// Begins to count from 0 again.
    void reset() noexcept;

  protected:
    explicit CallCounter(std::shared_ptr<provider::IProvider> inner);
    void before(Operation operation, provider::StorageIRI const* location) const override;

  private:
    mutable std::array<std::atomic<std::uint64_t>, operationCount> counts_{};
};

} // namespace foundation::storage::conformance
