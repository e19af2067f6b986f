#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What a command did and what it did not, in numbers, for the line that sums it up.
namespace cli {

/// What has been done so far.
struct WorkTally {
    std::uint64_t files = 0; ///< links among them
    std::uint64_t folders = 0;
    std::uint64_t bytes = 0; ///< 0 where bytes say nothing about the work
    std::uint64_t kept = 0;  ///< passed over because of an option
    /// Files of a move that were copied, and are still at their source too; not among `files`.
    std::uint64_t copiedOnly = 0;

    /// "12 files and 3 folders copied (1.5 MiB), 2 kept"; `verb` is the word "copied".
    std::string inWords(std::string const& verb) const;
};

/// Failures: how many, and the first of them by name, however many there are.
class FailureTally {
  public:
    static constexpr std::size_t namedAtMost = 10;

    /// `subject` must be fit to be shown.
    void add(std::string const& subject);
    std::uint64_t count() const noexcept { return count_; }
    /// "2 failed: a/b, a/c", "25 failed: a, b, c, d, e, f, g, h, i, j and 15 more".
    std::string inWords() const;

  private:
    std::uint64_t count_ = 0;
    std::vector<std::string> named_;
};

} // namespace cli
