#pragma once

#include <foundation/storage/conformance/provider_decorator.hpp>
#include <foundation/storage/provider/error_code.hpp>

#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace foundation::storage::conformance {

/// How long a fault lasts.
enum class Faulty { Once, FromThenOn };

/// A provider that fails where a test wants it to. Made by decorate<FaultInjector>(provider); fails
/// in nothing until it is told to.
///
/// A faulty call throws provider::Exception with the code and the location of the call, and the
/// inner provider is not asked. Of a cursor, hasNext() and the other three can be made to fail too,
/// with the listed location. FlushFilesystem has no location: its exceptions name `flush:/`.
/// A faulty CopySmallFiles throws nothing: no file is copied, and the caller has to do it.
///
/// Streams fail with the ByteStreamFailure that goes with the call, and are poisoned as those of a
/// storage are. Calls are counted over all streams of the provider.
///
/// Safe on any number of threads.
class FOUNDATION_EXPORT FaultInjector : public ProviderDecorator {
  public:
    /// The `call`-th call of an operation from now on, counted from 1, fails.
    void failAt(Operation operation, std::uint64_t call, provider::ErrorCode code,
                Faulty lasting = Faulty::Once);
    /// The `call`-th call from now on fails, whatever it is but the call of a stream: how many of
    /// those there are is a matter of buffers, and no way to fail of the provider. With `call` = 1,
    /// 2, 3 and so on until nothing fails any more, every way that a failure can take is gone.
    void failAtAny(std::uint64_t call, provider::ErrorCode code, Faulty lasting = Faulty::Once);
    /// The `call`-th read from now on of more than one byte asks for half, and so gives less than
    /// is there.
    void shortenReadAt(std::uint64_t call, Faulty lasting = Faulty::Once);
    /// The `call`-th write from now on of any bytes brings half of them to the storage, rounded
    /// down, and then fails.
    void shortenWriteAt(std::uint64_t call, provider::ErrorCode code,
                        Faulty lasting = Faulty::Once);
    /// Forgets all that was asked for.
    void clear();
    /// The calls that were made to fail, or to give less, so far.
    std::uint64_t countOfFaults() const;

  protected:
    explicit FaultInjector(std::shared_ptr<provider::IProvider> inner);
    void before(Operation operation, provider::StorageIRI const* location) const override;
    long doRead(provider::ByteStream& inner, char* buffer, long count) const override;
    long doWrite(provider::ByteStream& inner, char const* buffer, long count) const override;

  private:
    enum class Effect { Failure, Shortening };
    struct Fault {
        std::optional<Operation> operation; // empty: any
        std::uint64_t callsLeft;            // until it strikes
        provider::ErrorCode code;
        Faulty lasting;
        Effect effect = Effect::Failure;
    };

    void add(Fault fault);
    std::optional<Fault> strike(Operation operation, bool canBeShort = false) const;

    mutable std::mutex mutex_;
    // guarded by mutex_:
    mutable std::vector<Fault> faults_;
    mutable std::uint64_t count_ = 0;
};

} // namespace foundation::storage::conformance
