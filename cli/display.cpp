#include "display.hpp"

#include <fl/i18n/conversion.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace cli {

using foundation::storage::provider::ExtendedExistsResult;

namespace {

// Whether a unit changes how the rest of its line, or of the terminal, is shown.
bool isUnfitToShow(char16_t unit) {
    bool const control = unit < 0x20 || (unit >= 0x7f && unit < 0xa0);
    bool const separator = unit == 0x2028 || unit == 0x2029;
    // Text behind these runs the other way: `gnp.exe` can be made to look like another name.
    bool const turnsText = (unit >= 0x202a && unit <= 0x202e) || (unit >= 0x2066 && unit <= 0x2069);
    bool const byteOrderMark = unit == 0xfeff; // nothing at all is seen of it
    return control || separator || turnsText || byteOrderMark;
}

void appendEscaped(std::string& out, char16_t unit) {
    switch (unit) {
    case u'\n':
        out += "\\n";
        return;
    case u'\r':
        out += "\\r";
        return;
    case u'\t':
        out += "\\t";
        return;
    default:
        out += unit < 0x80 ? fmt::format("\\x{:02x}", static_cast<unsigned>(unit))
                           : fmt::format("\\u{:04x}", static_cast<unsigned>(unit));
    }
}

} // namespace

std::string onOneLine(std::string_view text) {
    bool const plain =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7f; });
    if (plain) {
        return std::string(text); // as most names are, and listings have many
    }
    std::u16string const units = fl::i18n::storageNameToUstring(text);
    std::string out;
    std::u16string pending;
    auto const flush = [&] {
        out += fl::i18n::toDisplayString(pending);
        pending.clear();
    };
    for (std::size_t i = 0; i < units.size(); ++i) {
        char16_t const unit = units[i];
        bool const pairFirst = unit >= 0xd800 && unit < 0xdc00;
        if (pairFirst && i + 1 < units.size()) {
            pending += unit;
            pending += units[++i];
        } else if (unit >= 0xdc80 && unit <= 0xdcff) {
            flush();
            out += fmt::format("\\x{:02x}", static_cast<unsigned>(unit - 0xdc00));
        } else if (isUnfitToShow(unit)) {
            flush();
            appendEscaped(out, unit);
        } else {
            pending += unit;
        }
    }
    flush();
    return out;
}

std::string shownLocation(std::string_view typed) {
    // User information stands between `://` and `@`. A password may hold a raw slash, which makes
    // the location malformed and ends the authority early; so what counts is a colon that no port
    // number follows, and the mask goes up to the last `@`. Rather too much is hidden than too
    // little.
    std::string_view const mark = "://";
    std::size_t const start = typed.find(mark);
    if (start != std::string_view::npos) {
        std::size_t const from = start + mark.size();
        std::size_t const at = typed.rfind('@');
        if (at != std::string_view::npos && at > from) {
            std::string_view const authority =
                typed.substr(from, typed.find_first_of("/?#", from) - from);
            std::size_t const colon = authority.find(':');
            bool const inside = authority.find('@') != std::string_view::npos;
            bool const port =
                colon != std::string_view::npos && colon + 1 < authority.size() &&
                authority.find_first_not_of("0123456789", colon + 1) == std::string_view::npos;
            if (colon != std::string_view::npos && (inside || !port)) {
                return onOneLine(typed.substr(0, from)) + "***" + onOneLine(typed.substr(at));
            }
        }
    }
    return onOneLine(typed);
}

std::string shortSize(double bytes) {
    static constexpr std::array units{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < units.size()) {
        bytes /= 1024;
        ++unit;
    }
    return unit == 0 ? fmt::format("{:.0f} B", bytes)
                     : fmt::format("{:.1f} {}", bytes, units[unit]);
}

std::string sizeInWords(std::uint64_t bytes) {
    if (bytes < 1024) {
        return fmt::format("{} {}", bytes, bytes == 1 ? "byte" : "bytes");
    }
    return fmt::format("{} ({} bytes)", shortSize(static_cast<double>(bytes)), bytes);
}

std::string modeInWords(std::uint32_t mode) {
    std::string text = "rwxrwxrwx";
    for (unsigned bit = 0; bit < 9; ++bit) {
        if ((mode & (0400u >> bit)) == 0) {
            text[bit] = '-';
        }
    }
    auto const special = [&](std::uint32_t bit, std::size_t at, char with, char without) {
        if ((mode & bit) != 0) {
            text[at] = text[at] == 'x' ? with : without;
        }
    };
    special(04000, 2, 's', 'S');
    special(02000, 5, 's', 'S');
    special(01000, 8, 't', 'T');
    return fmt::format("{} ({:04o})", text, mode & 07777u);
}

char const* kindInWords(ExtendedExistsResult kind) {
    switch (kind) {
    case ExtendedExistsResult::File:
        return "file";
    case ExtendedExistsResult::Folder:
        return "folder";
    case ExtendedExistsResult::LinkToFile:
        return "link to a file";
    case ExtendedExistsResult::LinkToFolder:
        return "link to a folder";
    case ExtendedExistsResult::DanglingLink:
        return "link that leads nowhere";
    case ExtendedExistsResult::Other:
        return "special file";
    case ExtendedExistsResult::Nothing:
        break;
    }
    return "nothing";
}

char const* kindForPrograms(ExtendedExistsResult kind) {
    switch (kind) {
    case ExtendedExistsResult::File:
        return "file";
    case ExtendedExistsResult::Folder:
        return "folder";
    case ExtendedExistsResult::LinkToFile:
        return "link-to-file";
    case ExtendedExistsResult::LinkToFolder:
        return "link-to-folder";
    case ExtendedExistsResult::DanglingLink:
        return "dangling-link";
    case ExtendedExistsResult::Other:
        return "other";
    case ExtendedExistsResult::Nothing:
        break;
    }
    return "nothing";
}

} // namespace cli
