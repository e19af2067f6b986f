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
}

void CallCounter::before(Operation operation, provider::StorageIRI const*) const {
    ++counts_[static_cast<std::size_t>(operation)];
}

} // namespace foundation::storage::conformance
