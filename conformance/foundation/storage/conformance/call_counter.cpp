#include <foundation/storage/conformance/call_counter.hpp>

#include <utility>

namespace foundation::storage::conformance {

CallCounter::CallCounter(std::shared_ptr<provider::IProvider> inner)
    : ProviderDecorator(std::move(inner)) {}

std::uint64_t CallCounter::countOf(Operation operation) const noexcept {
    return counts_[static_cast<std::size_t>(operation)];
}

std::uint64_t CallCounter::countOfAll() const noexcept {
    std::uint64_t sum = 0;
    for (auto const& count : counts_) {
        sum += count;
    }
    return sum;
}

void CallCounter::reset() noexcept {
    for (auto& count : counts_) {
        count = 0;
    }
    bytesRead_ = 0;
    bytesWritten_ = 0;
}

void CallCounter::before(Operation operation, provider::StorageIRI const*) const {
    ++counts_[static_cast<std::size_t>(operation)];
}

long CallCounter::doRead(provider::ByteStream& inner, char* buffer, long count) const {
    long const got = ProviderDecorator::doRead(inner, buffer, count);
    if (got > 0) {
        bytesRead_ += static_cast<std::uint64_t>(got);
    }
    return got;
}

long CallCounter::doWrite(provider::ByteStream& inner, char const* buffer, long count) const {
    long const done = ProviderDecorator::doWrite(inner, buffer, count);
    if (done > 0) {
        bytesWritten_ += static_cast<std::uint64_t>(done);
    }
    return done;
}

} // namespace foundation::storage::conformance
