#include <foundation/storage/conformance/call_delayer.hpp>

#include <thread>
#include <utility>

namespace foundation::storage::conformance {

CallDelayer::Operations CallDelayer::allOperations() {
    Operations all;
    for (std::size_t i = 0; i < operationCount; ++i) {
        all.insert(static_cast<Operation>(i));
    }
    return all;
}

CallDelayer::CallDelayer(std::shared_ptr<provider::IProvider> inner,
                         std::chrono::nanoseconds duration, Operations operations)
    : CallDelayer(
          std::move(inner),
          [duration](Operation, provider::StorageIRI const*) {
              std::this_thread::sleep_for(duration);
          },
          std::move(operations)) {}

CallDelayer::CallDelayer(std::shared_ptr<provider::IProvider> inner, CallAction action,
                         Operations operations)
    : ProviderDecorator(std::move(inner)),
      action_(std::move(action)),
      operations_(std::move(operations)) {}

void CallDelayer::before(Operation operation, provider::StorageIRI const* location) const {
    if (operations_.contains(operation)) {
        action_(operation, location);
    }
}

} // namespace foundation::storage::conformance
