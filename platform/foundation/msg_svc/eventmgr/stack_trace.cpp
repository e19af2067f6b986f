#include <foundation/msg_svc/eventmgr/stack_trace.hpp>

#include <array>
#include <cstdlib>
#include <execinfo.h>
#include <memory>
#include <ostream>

namespace foundation::msg_svc::eventmgr {

StackTrace StackTrace::current() {
    std::array<void*, 32> frames;
    int const count = ::backtrace(frames.data(), static_cast<int>(frames.size()));
    StackTrace trace;
    trace.frames_.assign(frames.begin(), frames.begin() + count);
    return trace;
}

std::ostream& operator<<(std::ostream& out, StackTrace const& trace) {
    std::unique_ptr<char*, decltype(&std::free)> const symbols(
        ::backtrace_symbols(trace.frames_.data(), static_cast<int>(trace.frames_.size())),
        &std::free);
    for (std::size_t i = 0; symbols && i < trace.frames_.size(); ++i) {
        out << symbols.get()[i] << '\n';
    }
    return out;
}

} // namespace foundation::msg_svc::eventmgr
