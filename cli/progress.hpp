#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
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

/// Files and bytes: what is done, or what there is to do.
struct WorkAmount {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
};

/// The same line for work on many files, with the files, the bytes, the rate and the time that is
/// left. The label is asked for only when the line is drawn, and must be fit to be shown.
class WorkProgress {
  public:
    using Label = std::function<std::string()>;

    WorkProgress();
    ~WorkProgress();
    WorkProgress(WorkProgress const&) = delete;
    WorkProgress& operator=(WorkProgress const&) = delete;

    /// Whether anybody sees it, so that it is worth counting what there is to do.
    bool isWanted() const noexcept { return wanted_; }
    /// May be called often. A total is left out where there is none, or where it was passed.
    void update(WorkAmount const& done, std::optional<WorkAmount> const& total, Label const& label);
    /// Takes the line away, so that another can be written.
    void wipe();

  private:
    using Clock = std::chrono::steady_clock;

    bool wanted_;
    bool shown_ = false;
    Clock::time_point start_;
    Clock::time_point next_;
};

/// "a/b.c  12 of 345 files  1.5 GiB of 4.0 GiB  37%  810.2 MiB/s  0:25 left", cut to `columns` at
/// the label; where the figures alone are too long, the rate goes first.
std::string workProgressText(std::string const& label, WorkAmount const& done,
                             std::optional<WorkAmount> const& total, double seconds,
                             std::size_t columns);

} // namespace cli
