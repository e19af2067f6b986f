#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::storage::provider::web {

/// Without regard to the case of ASCII letters.
bool areEqualNames(std::string_view a, std::string_view b) noexcept;

/// Without blanks and line ends around it.
std::string_view trimmed(std::string_view text) noexcept;

/// The fields before a message, in their order; names compare without regard to case.
class Headers {
  public:
    void add(std::string name, std::string value) {
        fields_.emplace_back(std::move(name), std::move(value));
    }
    /// The first of this name.
    std::optional<std::string_view> find(std::string_view name) const noexcept;
    bool isRepeated(std::string_view name) const noexcept;
    /// Appends to the last value, behind a blank.
    void goOn(std::string_view value);
    std::vector<std::pair<std::string, std::string>> const& fields() const noexcept {
        return fields_;
    }
    void clear() noexcept { fields_.clear(); }

  private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

/// Which part of a file the answer to a request for a range holds (RFC 9110, section 14.4).
struct ContentRange {
    bool isSatisfied = false;
    std::uint64_t first = 0;           ///< where it is satisfied
    std::uint64_t last = 0;            ///< the same; included
    std::optional<std::uint64_t> size; ///< of the whole file, where it is told
};

/// Nothing where it is malformed, or counts anything but bytes.
std::optional<ContentRange> parseContentRange(std::string_view value) noexcept;

/// A number of decimal digits alone; nothing where it is something else, or too large.
std::optional<std::uint64_t> parseNumber(std::string_view text) noexcept;

/// Seconds since 1970 of a date in any of the three forms (RFC 9110, section 5.6.7).
std::optional<std::int64_t> parseHttpDate(std::string_view text);

} // namespace foundation::storage::provider::web
