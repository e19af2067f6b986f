#include <foundation/storage/provider/web/headers.hpp>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <curl/curl.h>

namespace foundation::storage::provider::web {

namespace {

char small(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

bool areEqualNames(std::string_view a, std::string_view b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return small(x) == small(y); });
}

std::string_view trimmed(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t\r\n";
    std::size_t const first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

bool Headers::isRepeated(std::string_view name) const noexcept {
    return std::count_if(fields_.begin(), fields_.end(),
                         [&](auto const& field) { return areEqualNames(field.first, name); }) > 1;
}

void Headers::goOn(std::string_view value) {
    if (!fields_.empty() && !value.empty()) {
        std::string& last = fields_.back().second;
        last += last.empty() ? "" : " ";
        last += value;
    }
}

std::optional<std::string_view> Headers::find(std::string_view name) const noexcept {
    for (auto const& [key, value] : fields_) {
        if (areEqualNames(key, name)) {
            return std::string_view(value);
        }
    }
    return std::nullopt;
}

std::optional<std::uint64_t> parseNumber(std::string_view text) noexcept {
    std::uint64_t number = 0;
    char const* const end = text.data() + text.size();
    auto const [behind, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && behind == end ? std::optional(number) : std::nullopt;
}

std::optional<ContentRange> parseContentRange(std::string_view value) noexcept {
    constexpr std::string_view unit = "bytes ";
    if (value.size() < unit.size() || !areEqualNames(value.substr(0, unit.size()), unit)) {
        return std::nullopt;
    }
    value.remove_prefix(unit.size());
    std::size_t const slash = value.find('/');
    if (slash == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view const range = value.substr(0, slash);
    std::string_view const size = value.substr(slash + 1);
    ContentRange result;
    if (size != "*") {
        result.size = parseNumber(size);
        if (!result.size) {
            return std::nullopt;
        }
    }
    if (range == "*") {
        return result;
    }
    std::size_t const dash = range.find('-');
    if (dash == std::string_view::npos) {
        return std::nullopt;
    }
    auto const first = parseNumber(range.substr(0, dash));
    auto const last = parseNumber(range.substr(dash + 1));
    if (!first || !last || *last < *first || (result.size && *last >= *result.size)) {
        return std::nullopt;
    }
    result.isSatisfied = true;
    result.first = *first;
    result.last = *last;
    return result;
}

std::optional<std::int64_t> parseHttpDate(std::string_view text) {
    std::time_t const time = ::curl_getdate(std::string(text).c_str(), nullptr);
    return time == -1 ? std::nullopt : std::optional<std::int64_t>(time);
}

} // namespace foundation::storage::provider::web
