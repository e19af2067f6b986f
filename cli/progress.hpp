#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace cli {

/// A line on standard error that says how far a long piece of work is: only on a terminal, and only
/// once the work has taken half a second. The destructor wipes it away.
class ProgressLine {
  public:
    /// `label` must be fit to be shown.
    explicit ProgressLine(std::string label);
    ~ProgressLine();
    ProgressLine(ProgressLine const&) = delete;
    ProgressLine& operator=(ProgressLine const&) = delete;

    /// May be called often: writes ten times a second at most.
    void update(std::uint64_t done, std::optional<std::uint64_t> total);

  private:
    using Clock = std::chrono::steady_clock;

    std::string label_;
    bool wanted_;
    bool shown_ = false;
    Clock::time_point start_;
    Clock::time_point next_;
};

/// "a.iso  1.5 GiB of 4.0 GiB  37%  810.2 MiB/s", cut to `columns` at the label. Without a total,
/// or with a total that was passed, the part and the percentage are left out.
std::string progressText(std::string const& label, std::uint64_t done,
                         std::optional<std::uint64_t> total, double seconds, std::size_t columns);

} // namespace cli
