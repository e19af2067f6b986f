#include "profile_file.hpp"

namespace cli {

namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    std::size_t const first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Without a comment, which begins behind a blank: a secret key may have any other character.
std::string_view withoutComment(std::string_view text) {
    for (std::size_t i = 1; i < text.size(); ++i) {
        if ((text[i] == '#' || text[i] == ';') && (text[i - 1] == ' ' || text[i - 1] == '\t')) {
            return text.substr(0, i);
        }
    }
    return text;
}

/// `profile  name` and `profile "name"` with one space, and without the quotes.
std::string headingOf(std::string_view text) {
    text = trimmed(text);
    std::string heading;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char const c = text[i];
        bool const isAtStart = heading.empty() || heading.back() == ' ';
        if (isAtStart && (c == '"' || c == '\'')) {
            if (std::size_t const end = text.find(c, i + 1); end != std::string_view::npos) {
                heading += text.substr(i + 1, end - i - 1);
                i = end;
                continue;
            }
        }
        bool const isBlank = blanks.find(c) != std::string_view::npos;
        if (!isBlank) {
            heading += c;
        } else if (!isAtStart) {
            heading += ' ';
        }
    }
    return heading;
}

/// Keys count without regard to case.
std::string keyOf(std::string_view text) {
    std::string key(trimmed(text));
    for (char& c : key) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return key;
}

} // namespace

std::map<std::string, ProfileSection, std::less<>> parseProfiles(std::string_view text) {
    std::map<std::string, ProfileSection, std::less<>> sections;
    ProfileSection* section = nullptr;
    std::string above; // the key that lines belong to that are indented more than it is
    std::size_t indentAbove = 0;
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    while (!text.empty()) {
        std::size_t const end = text.find('\n');
        std::string_view const whole = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        std::string_view const line = trimmed(whole);
        if (line.empty() || line.front() == '#' || line.front() == ';') {
            continue;
        }
        if (line.front() == '[') {
            std::size_t const close = line.find(']');
            section = close == std::string_view::npos
                          ? nullptr
                          : &sections[headingOf(line.substr(1, close - 1))];
            above.clear();
            continue;
        }
        std::size_t const equals = line.find('=');
        if (!section || equals == std::string_view::npos) {
            continue;
        }
        std::string key = keyOf(line.substr(0, equals));
        std::string_view const value = trimmed(withoutComment(line.substr(equals + 1)));
        std::size_t const indent = whole.find_first_not_of(blanks);
        if (!above.empty() && indent > indentAbove) {
            key.insert(0, above + '.');
        } else {
            above = value.empty() ? key : "";
            indentAbove = indent;
        }
        section->insert_or_assign(std::move(key), std::string(value));
    }
    return sections;
}

} // namespace cli
