#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

/// A line of a script that cannot be split into words. The rest of the line has been passed over.
class ScriptError : public std::runtime_error {
  public:
    ScriptError(std::size_t line, std::string const& reason);
};

/// Splits a script into commands and those into words, as a POSIX shell quotes them: '...', "...",
/// a backslash, and comments from # to the end of the line. A quoted part and a line that ends with
/// a backslash go on to the next line. Nothing is expanded. The operators ; | < > and a & that ends
/// a word are refused unless quoted, since taking them as text would hide a mistake.
class ScriptReader {
  public:
    /// `next` gives the next byte, or -1 at the end. It is asked for no byte behind a command's
    /// line.
    explicit ScriptReader(std::function<int()> next);

    /// The words of the next command. False at the end of the script. Throws ScriptError, after
    /// which reading may go on.
    bool read(std::vector<std::string>& words);

  private:
    enum class Mark { LineEnd, End, Word };

    int take();
    void endLine();
    Mark skipToWord();
    void readWord(std::string& word);
    void readSingleQuoted(std::string& word);
    void readDoubleQuoted(std::string& word);
    [[noreturn]] void refuse(std::size_t line, std::string const& reason);

    std::function<int()> next_;
    int current_ = ' '; // the byte in hand
    std::size_t line_ = 1;
};

} // namespace cli
