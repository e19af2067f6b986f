#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

/// A command line that was not understood. `what()` is one line that repeats option names at most,
/// never an operand: an operand may hold a secret.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What `--help` says of a command.
struct CommandHelp {
    std::string name;
    std::string description;
    std::vector<std::string> examples;    ///< command lines, each of which runs
    std::string helpOption = "-h,--help"; ///< without the letter where that means something else
};

/// A number as people type it for an option; empty where the text is none.
std::optional<std::size_t> wholeNumber(std::string const& text);

/// The options and operands of one command, as it declares them, and the reading of them. For one
/// use: declare, read, then take `operands`.
class Arguments {
  public:
    static constexpr std::size_t unlimited = static_cast<std::size_t>(-1);

    explicit Arguments(CommandHelp help);
    ~Arguments();

    /// `names` as in "-p,--parents". The target must outlive the reading.
    Arguments& flag(std::string const& names, bool& target, std::string const& description);
    /// An option with a value, of which the last one counts.
    Arguments& option(std::string const& names, std::optional<std::string>& target,
                      std::string const& value, std::string const& description);
    /// The operands: what they are called, and how many there may be.
    Arguments& takes(std::string const& what, std::size_t least, std::size_t most);

    /// Reads the words behind the command's name. Returns false where only help was wanted; it is
    /// then in `helpText`. Throws UsageError.
    [[nodiscard]] bool read(std::vector<std::string> const& words);

    std::vector<std::string> const& operands() const noexcept;
    std::string helpText() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace cli
