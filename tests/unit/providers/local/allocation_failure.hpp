#pragma once

#include <cstddef>

namespace foundation::storage::provider::local::test {

/// Lets one allocation of this thread fail with std::bad_alloc, the one behind the next `before`,
/// as long as the value lives. `happened` tells whether it came to that.
class AllocationFailure {
  public:
    AllocationFailure(std::size_t before, bool& happened) noexcept;
    AllocationFailure(AllocationFailure const&) = delete;
    AllocationFailure& operator=(AllocationFailure const&) = delete;
    ~AllocationFailure();

  private:
    bool& happened_;
};

/// Allocations of this thread neither fail nor count as long as it lives.
class AllocationFailurePause {
  public:
    AllocationFailurePause() noexcept;
    AllocationFailurePause(AllocationFailurePause const&) = delete;
    AllocationFailurePause& operator=(AllocationFailurePause const&) = delete;
    ~AllocationFailurePause();

  private:
    bool const wasCounting_;
};

} // namespace foundation::storage::provider::local::test
