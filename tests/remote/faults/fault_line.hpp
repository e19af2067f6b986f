#pragma once

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

/// The way to a server through a fault proxy, which has one rule at a time. For one thread.
class FaultLine {
  public:
    /// `endpoint` is the proxy's own, without a slash at the end.
    explicit FaultLine(std::string endpoint);

    /// From here on, with counters at zero.
    void set(Fault const& fault) const;
    /// Ends the rule, and tells what came to pass under it.
    FaultCounts clear() const;

  private:
    std::string const control_;
};

} // namespace remote_faults
