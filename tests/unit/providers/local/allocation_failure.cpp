#include "allocation_failure.hpp"

#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local bool counting = false;
thread_local std::size_t left = 0;
thread_local bool failed = false;

} // namespace

void* operator new(std::size_t size) {
    if (counting && left-- == 0) {
        counting = false;
        failed = true;
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace foundation::storage::provider::local::test {

AllocationFailure::AllocationFailure(std::size_t before, bool& happened) noexcept
    : happened_(happened) {
    left = before;
    failed = false;
    counting = true;
}

AllocationFailure::~AllocationFailure() {
    counting = false;
    happened_ = failed;
}

AllocationFailurePause::AllocationFailurePause() noexcept
    : wasCounting_(std::exchange(counting, false)) {}

AllocationFailurePause::~AllocationFailurePause() {
    counting = wasCounting_;
}

} // namespace foundation::storage::provider::local::test
