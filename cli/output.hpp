#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace cli {

/// Standard output could not be written; `what()` is the reason in words.
class OutputFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Standard output. Facts are gathered and written by flush() and flushBlock(); bytes of files are
/// written at once, behind what was gathered. Throws OutputFailure. Without a reader the process
/// dies of SIGPIPE, as other filters do, unless whoever started it ignores that signal.
class Output {
  public:
    /// Decides on colours: only on a terminal, and not under NO_COLOR.
    Output();

    void print(std::string_view text) { gathered_ += text; }
    void printLine(std::string_view text);
    /// `text` as a heading: bold where colours are wanted.
    std::string heading(std::string_view text) const;
    void writeBytes(char const* bytes, std::size_t count);
    void flush();
    /// For facts without a bound: writes what was gathered once it fills a block, and at once on a
    /// terminal.
    void flushBlock();

  private:
    std::string gathered_;
    bool terminal_;
    bool colours_;
};

/// The reason for a failed system call in the words that the command uses for storages too.
std::string systemReason(int errorNumber);

} // namespace cli
