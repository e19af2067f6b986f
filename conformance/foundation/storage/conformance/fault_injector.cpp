#include <foundation/storage/conformance/fault_injector.hpp>

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace foundation::storage::conformance {

namespace {

bool isOfStream(Operation operation) {
    using enum Operation;
    return operation == Read || operation == Write || operation == Seek || operation == Close;
}

} // namespace

FaultInjector::FaultInjector(std::shared_ptr<provider::IProvider> inner)
    : ProviderDecorator(std::move(inner)) {}

void FaultInjector::failAt(Operation operation, std::uint64_t call, provider::ErrorCode code,
                           Faulty lasting) {
    add({operation, call, code, lasting});
}

void FaultInjector::failAtAny(std::uint64_t call, provider::ErrorCode code, Faulty lasting) {
    add({std::nullopt, call, code, lasting});
}

void FaultInjector::shortenReadAt(std::uint64_t call, Faulty lasting) {
    add({Operation::Read, call, provider::ErrorCode::Unknown, lasting, Effect::Shortening});
}

void FaultInjector::shortenWriteAt(std::uint64_t call, provider::ErrorCode code, Faulty lasting) {
    add({Operation::Write, call, code, lasting, Effect::Shortening});
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

/// Counts a call for every fault; the first one that strikes. Of an operation that can be short,
/// those that shorten it are asked too.
std::optional<FaultInjector::Fault> FaultInjector::strike(Operation operation,
                                                          bool canBeShort) const {
    std::lock_guard const lock(mutex_);
    std::optional<Fault> struck;
    for (Fault& fault : faults_) {
        bool const isMeant =
            fault.operation ? *fault.operation == operation : !isOfStream(operation);
        if (!isMeant || (fault.effect == Effect::Shortening && !canBeShort)) {
            continue;
        }
        if (fault.callsLeft > 0) {
            --fault.callsLeft;
        }
        if (fault.callsLeft == 0 && !struck) {
            struck = fault;
        }
    }
    // One that struck together with another has had its call.
    std::erase_if(faults_, [](Fault const& fault) {
        return fault.callsLeft == 0 && fault.lasting == Faulty::Once;
    });
    count_ += struck ? 1 : 0;
    return struck;
}

void FaultInjector::before(Operation operation, provider::StorageIRI const* location) const {
    if (operation == Operation::Read || operation == Operation::Write) {
        return; // counted where the bytes are known
    }
    auto const fault = strike(operation);
    if (!fault) {
        return;
    }
    switch (operation) {
    case Operation::Seek:
        throw provider::ByteStreamSeekFailure("seek: an injected fault", fault->code);
    case Operation::Close:
        throw provider::ByteStreamCloseFailure("close: an injected fault", fault->code);
    default:
        throw provider::Exception(fault->code,
                                  location ? *location : provider::StorageIRI(u"flush:/"));
    }
}

long FaultInjector::doRead(provider::ByteStream& inner, char* buffer, long count) const {
    auto const fault = strike(Operation::Read, count > 1);
    if (fault && fault->effect == Effect::Failure) {
        throw provider::ByteStreamReadFailure("read: an injected fault", fault->code);
    }
    return ProviderDecorator::doRead(inner, buffer, fault ? count / 2 : count);
}

long FaultInjector::doWrite(provider::ByteStream& inner, char const* buffer, long count) const {
    auto const fault = strike(Operation::Write, count > 0);
    if (!fault) {
        return ProviderDecorator::doWrite(inner, buffer, count);
    }
    if (fault->effect == Effect::Shortening) {
        ProviderDecorator::doWrite(inner, buffer, count / 2);
    }
    throw provider::ByteStreamWriteFailure("write: an injected fault", fault->code);
}

} // namespace foundation::storage::conformance
