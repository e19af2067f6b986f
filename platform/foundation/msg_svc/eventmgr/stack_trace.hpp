#pragma once

#include <foundation/export.hpp>

#include <cstddef>
#include <iosfwd>
#include <vector>

namespace foundation::msg_svc::eventmgr {

/// Return addresses of a thread, innermost first, at most 32 of them.
class FOUNDATION_EXPORT StackTrace {
  public:
    StackTrace() = default;

    /// Of the calling thread.
    static StackTrace current();

    std::size_t size() const noexcept { return frames_.size(); }

  private:
    friend FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, StackTrace const& trace);

    std::vector<void*> frames_;
};

/// A line a frame, as backtrace_symbols(3) names it.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, StackTrace const& trace);

} // namespace foundation::msg_svc::eventmgr
