#include <foundation/storage/conformance/fault_injector.hpp>

#include <foundation/storage/provider/exception.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace foundation::storage::conformance {

FaultInjector::FaultInjector(std::shared_ptr<provider::IProvider> inner)
    : ProviderDecorator(std::move(inner)) {}

void FaultInjector::failAt(Operation operation, std::uint64_t call, provider::ErrorCode code,
                           Faulty lasting) {
    add({operation, call, code, lasting});
}

void FaultInjector::failAtAny(std::uint64_t call, provider::ErrorCode code, Faulty lasting) {
    add({std::nullopt, call, code, lasting});
}

void FaultInjector::add(Fault fault) {
    if (fault.callsLeft == 0) {
        throw std::invalid_argument("calls are counted from 1");
    }
    std::lock_guard const lock(mutex_);
    faults_.push_back(fault);
}

void FaultInjector::clear() {
    std::lock_guard const lock(mutex_);
    faults_.clear();
}

std::uint64_t FaultInjector::countOfFaults() const {
    std::lock_guard const lock(mutex_);
    return count_;
}

/// Counts a call for every fault; the code of the first one that strikes.
std::optional<provider::ErrorCode> FaultInjector::codeFor(Operation operation) const {
    std::lock_guard const lock(mutex_);
    std::optional<provider::ErrorCode> code;
    for (Fault& fault : faults_) {
        if (fault.operation.value_or(operation) != operation) {
            continue;
        }
        if (fault.callsLeft > 0) {
            --fault.callsLeft;
        }
        if (fault.callsLeft == 0 && !code) {
            code = fault.code;
        }
    }
    // One that struck together with another has had its call.
    std::erase_if(faults_, [](Fault const& fault) {
        return fault.callsLeft == 0 && fault.lasting == Faulty::Once;
    });
    count_ += code ? 1 : 0;
    return code;
}

void FaultInjector::before(Operation operation, provider::StorageIRI const* location) const {
    if (auto const code = codeFor(operation)) {
        throw provider::Exception(*code, location ? *location : provider::StorageIRI(u"flush:/"));
    }
}

} // namespace foundation::storage::conformance
