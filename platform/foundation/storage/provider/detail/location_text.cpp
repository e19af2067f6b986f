#include <foundation/storage/provider/detail/location_text.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace foundation::storage::provider::detail {

namespace {

constexpr bool isSurrogate(char16_t c) {
    return (c & 0xF800) == 0xD800;
}
constexpr bool isHighSurrogate(char16_t c) {
    return (c & 0xFC00) == 0xD800;
}
constexpr bool isLowSurrogate(char16_t c) {
    return (c & 0xFC00) == 0xDC00;
}
constexpr bool isEscapedByte(char16_t c) {
    return c >= 0xDC80 && c <= 0xDCFF;
}

constexpr int hexDigit(char16_t c) {
    if (c >= u'0' && c <= u'9') {
        return c - u'0';
    }
    if (c >= u'a' && c <= u'f') {
        return c - u'a' + 10;
    }
    if (c >= u'A' && c <= u'F') {
        return c - u'A' + 10;
    }
    return -1;
}

void appendPercent(ustring& out, unsigned byte) {
    constexpr char16_t digits[] = u"0123456789ABCDEF";
    out += u'%';
    out += digits[byte >> 4];
    out += digits[byte & 0xF];
}

/// The byte that the three units at `i` stand for.
unsigned percentByte(std::u16string_view raw, std::size_t i) {
    int const high = i + 2 < raw.size() ? hexDigit(raw[i + 1]) : -1;
    int const low = high >= 0 ? hexDigit(raw[i + 2]) : -1;
    if (low < 0) {
        malformed("a location holds a percent sign without two hexadecimal digits");
    }
    return static_cast<unsigned>(high * 16 + low);
}

constexpr std::u16string_view genericDelimiters = u":/?#[]@%";
constexpr std::u16string_view subDelimiters = u"$&'()*+,;=";

bool staysEncoded(char16_t c, Part part) {
    // The exclamation mark is not among them: composing a nested location encodes it.
    return (part != Part::Path && genericDelimiters.find(c) != std::u16string_view::npos) ||
           (part == Part::Query && subDelimiters.find(c) != std::u16string_view::npos);
}

/// Whether a unit may be anything but itself: the beginning of an encoded byte, part of a character
/// of two units, or what no location holds.
constexpr bool needsDecoding(char16_t c) {
    return c == u'%' || c == u'\0' || isSurrogate(c);
}

/// Whether a character has to be encoded in a path.
constexpr bool needsEncoding(char16_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == u'%' || c == u'?' || c == u'#' ||
           isSurrogate(c);
}

char16_t lowerAscii(char16_t c) {
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

std::uint16_t parsePort(std::u16string_view digits) {
    unsigned port = 0;
    for (char16_t const c : digits) {
        if (c < u'0' || c > u'9') {
            malformed("a port is a number from 1 to 65535");
        }
        port = port * 10 + static_cast<unsigned>(c - u'0');
        if (port > 0xFFFF) {
            malformed("a port is a number from 1 to 65535");
        }
    }
    if (port == 0 && !digits.empty()) {
        malformed("a port is a number from 1 to 65535");
    }
    return static_cast<std::uint16_t>(port);
}

} // namespace

void malformed(char const* reason) {
    throw MalformedIRIException(reason);
}

void requireLength(std::size_t length) {
    if (length > std::numeric_limits<std::uint32_t>::max() / 2) {
        malformed("a location is too long");
    }
}

std::size_t requireScheme(std::u16string_view text) {
    std::size_t const length = schemeLength(text);
    if (length == 0) {
        malformed("a scheme is a letter and at least one letter, digit, hyphen, dot or plus");
    }
    return length;
}

bool isDecoded(std::u16string_view raw) noexcept {
    return std::none_of(raw.begin(), raw.end(), needsDecoding);
}

bool isPlainHost(std::u16string_view authority) noexcept {
    return std::all_of(authority.begin(), authority.end(), [](char16_t c) {
        return (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') || c == u'-' || c == u'.' ||
               c == u'_';
    });
}

void appendDecoded(ustring& out, std::u16string_view raw, Part part) {
    std::string run;
    std::size_t i = 0;
    while (i < raw.size()) {
        std::size_t const plain = i;
        while (i < raw.size() && !needsDecoding(raw[i])) {
            ++i;
        }
        out.append(raw.data() + plain, i - plain);
        if (i == raw.size()) {
            break;
        }
        if (isHighSurrogate(raw[i]) && i + 1 < raw.size() && isLowSurrogate(raw[i + 1])) {
            out.append(raw.data() + i, 2);
            i += 2;
            continue;
        }

        // Bytes are gathered, since those that are not ASCII are a character only together.
        run.clear();
        while (i < raw.size() && (raw[i] == u'%' || isEscapedByte(raw[i]))) {
            unsigned byte = raw[i] - 0xDC00U;
            std::size_t width = 1;
            if (raw[i] == u'%') {
                byte = percentByte(raw, i);
                width = 3;
            }
            if (byte == 0) {
                malformed("a location holds a NUL");
            }
            if (byte == '/' && part != Part::Query) {
                malformed("a location holds an encoded slash");
            }
            if (staysEncoded(static_cast<char16_t>(byte), part)) {
                fl::i18n::appendStorageName(out, run);
                run.clear();
                appendPercent(out, byte);
            } else {
                run += static_cast<char>(static_cast<unsigned char>(byte));
            }
            i += width;
        }
        fl::i18n::appendStorageName(out, run);
        if (i < raw.size() && raw[i] == u'\0') {
            malformed("a location holds a NUL");
        }
        if (i < raw.size() && isSurrogate(raw[i]) &&
            !(isHighSurrogate(raw[i]) && i + 1 < raw.size() && isLowSurrogate(raw[i + 1]))) {
            malformed("a location holds half a character");
        }
    }
}

bool appendIdentity(ustring& out, std::u16string_view rawPath) {
    bool dots = false;
    std::size_t const start = out.size();
    std::size_t i = 0;
    while (i < rawPath.size()) {
        if (rawPath[i] == u'/') {
            ++i;
            continue;
        }
        std::size_t end = i;
        bool plain = true;
        for (; end < rawPath.size() && rawPath[end] != u'/'; ++end) {
            plain = plain && !needsDecoding(rawPath[end]);
        }
        std::u16string_view const raw = rawPath.substr(i, end - i);
        out += u'/';
        if (plain) {
            out += raw;
            dots = dots || isDotSegment(raw);
        } else {
            std::size_t const before = out.size();
            appendDecoded(out, raw, Part::Path);
            if (isDotSegment(std::u16string_view(out).substr(before))) {
                malformed("a location holds an encoded dot segment");
            }
        }
        i = end;
    }
    if (out.size() == start) {
        out += u'/';
    }
    return dots;
}

void appendResolved(ustring& out, std::u16string_view identity) {
    std::size_t const start = out.size();
    out.reserve(start + identity.size());
    std::size_t i = 0;
    while (i + 1 < identity.size()) {
        std::size_t const end = std::min(identity.find(u'/', i + 1), identity.size());
        std::u16string_view const segment = identity.substr(i + 1, end - i - 1);
        if (!isDotSegment(segment)) {
            out += u'/';
            out += segment;
        } else if (segment.size() == 2) {
            std::size_t const slash = out.rfind(u'/');
            out.resize(slash == ustring::npos || slash < start ? start : slash);
        }
        i = end;
    }
    if (out.size() == start) {
        out += u'/';
    }
}

std::u16string_view lastSegment(std::u16string_view identity) noexcept {
    return identity.substr(identity.rfind(u'/') + 1);
}

void appendEncoded(ustring& out, std::u16string_view name) {
    for (std::size_t i = 0; i < name.size(); ++i) {
        char16_t const c = name[i];
        if (!needsEncoding(c)) {
            out += c;
        } else if (c == u'\0') {
            malformed("a name holds a NUL");
        } else if (c < 0x80) {
            appendPercent(out, c);
        } else if (c < 0xA0) {
            appendPercent(out, 0xC2);
            appendPercent(out, c);
        } else if (isEscapedByte(c)) {
            appendPercent(out, c - 0xDC00U);
        } else if (isHighSurrogate(c) && i + 1 < name.size() && isLowSurrogate(name[i + 1])) {
            out += c;
            out += name[++i];
        } else {
            malformed("a name holds half a character");
        }
    }
}

ustring joinedName(std::u16string_view name) {
    if (std::none_of(name.begin(), name.end(), isSurrogate)) {
        return ustring(name);
    }
    try {
        return fl::i18n::storageNameToUstring(fl::i18n::ustringToStorageName(name));
    } catch (std::range_error const&) {
        malformed("a name holds half a character");
    }
}

Authority splitAuthority(std::u16string_view authority) {
    Authority parts;
    std::u16string_view rest = authority;
    if (std::size_t const at = rest.find(u'@'); at != std::u16string_view::npos) {
        parts.user = rest.substr(0, at);
        rest.remove_prefix(at + 1);
        if (parts.user.find(u':') != std::u16string_view::npos) {
            malformed("a location holds a password; credentials belong into a provider's options");
        }
        if (rest.find(u'@') != std::u16string_view::npos) {
            malformed("a location holds more than one at sign before its path");
        }
    }
    std::size_t hostEnd;
    if (rest.starts_with(u'[')) {
        hostEnd = rest.find(u']');
        if (hostEnd == std::u16string_view::npos) {
            malformed("a host begins with a bracket that is not closed");
        }
        ++hostEnd;
    } else {
        hostEnd = std::min(rest.find(u':'), rest.size());
    }
    parts.host = rest.substr(0, hostEnd);
    rest.remove_prefix(hostEnd);
    std::size_t const inside = parts.host.starts_with(u'[') ? 1 : 0;
    if (parts.host.substr(inside, parts.host.size() - 2 * inside).find_first_of(u"[]") !=
        std::u16string_view::npos) {
        malformed("a host holds a bracket");
    }
    if (!rest.empty()) {
        if (rest.front() != u':') {
            malformed("a host is followed by neither a port nor a path");
        }
        parts.port = parsePort(rest.substr(1));
    }
    return parts;
}

void appendCanonicalAuthority(ustring& out, Authority const& authority) {
    if (!authority.user.empty()) {
        appendDecoded(out, authority.user, Part::Authority);
        out += u'@';
    }
    std::size_t const host = out.size();
    appendDecoded(out, authority.host, Part::Authority);
    for (std::size_t i = host; i < out.size(); ++i) {
        out[i] = lowerAscii(out[i]);
    }
    if (authority.port != 0) {
        out += u':';
        for (char const c : std::to_string(authority.port)) {
            out += static_cast<char16_t>(c);
        }
    }
}

} // namespace foundation::storage::provider::detail
