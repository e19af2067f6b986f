#pragma once

#include <foundation/export.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace foundation::log {

template<class Char>
class basic_diagnostic_logger;

/// A named source of diagnostic records, which go to the core of Boost.Log with the attributes
/// "Channel" (the name) and "Severity" (the level, an int). What becomes of them is the host's
/// choice, made with that library's filters and sinks. Safe on any thread.
template<>
class FOUNDATION_EXPORT basic_diagnostic_logger<char> {
  public:
    explicit basic_diagnostic_logger(std::string name);
    ~basic_diagnostic_logger();

    basic_diagnostic_logger(basic_diagnostic_logger const&) = delete;
    basic_diagnostic_logger& operator=(basic_diagnostic_logger const&) = delete;

    std::string const& name() const noexcept;
    /// Whether a record at `level` would reach anybody.
    bool isEnabled(int level) const;
    void write(int level, std::string_view text) const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

using diagnostic_logger = basic_diagnostic_logger<char>;

} // namespace foundation::log
