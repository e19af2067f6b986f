#pragma once

#include <memory>
#include <string>

namespace remote_faults {

/// A rule of the fault proxy, as it tells of itself (servers/faultproxy.py).
struct Fault {
    std::string kind;        ///< empty: none
    unsigned skip = 0;       ///< requests that pass before
    unsigned count = 1;      ///< faults at most; 0: without an end
    unsigned after = 0;      ///< bytes that pass before
    std::string match = "."; ///< a regular expression for "METHOD target"

    std::string text() const;
};

struct FaultCounts {
    unsigned requests;
    unsigned applied; ///< faults that took place
};

/// The way to a server, on which one fault is injected at a time. For one thread.
class FaultLine {
  public:
    FaultLine() = default;
    FaultLine(FaultLine const&) = delete;
    FaultLine& operator=(FaultLine const&) = delete;
    virtual ~FaultLine() = default;

    /// From here on, with counters at zero.
    virtual void set(Fault const& fault) = 0;
    /// Ends the rule, and tells what came to pass under it.
    virtual FaultCounts clear() = 0;
};

/// A way through a fault proxy. `endpoint` is the proxy's own, without a slash at the end.
std::unique_ptr<FaultLine> makeFaultLine(std::string const& endpoint);

} // namespace remote_faults
