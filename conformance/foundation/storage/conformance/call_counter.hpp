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
    /// Bytes that streams have read, and written.
    std::uint64_t bytesRead() const noexcept { return bytesRead_; }
    std::uint64_t bytesWritten() const noexcept { return bytesWritten_; }
    /// Begins to count from 0 again.
    void reset() noexcept;

  protected:
    explicit CallCounter(std::shared_ptr<provider::IProvider> inner);
    void before(Operation operation, provider::StorageIRI const* location) const override;
    long doRead(provider::ByteStream& inner, char* buffer, long count) const override;
    long doWrite(provider::ByteStream& inner, char const* buffer, long count) const override;

  private:
    mutable std::array<std::atomic<std::uint64_t>, operationCount> counts_{};
    mutable std::atomic<std::uint64_t> bytesRead_ = 0;
    mutable std::atomic<std::uint64_t> bytesWritten_ = 0;
};

} // namespace foundation::storage::conformance
