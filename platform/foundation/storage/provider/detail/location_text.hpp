#pragma once

#include <fl/i18n/lcctype.hpp>
#include <fl/i18n/ustring.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The text of a location, part by part: what may stand where, how it is decoded, and how names are
/// encoded. What is wrong with a text is said by MalformedIRIException.
namespace foundation::storage::provider::detail {

using fl::i18n::ustring;

/// How many schemes may be nested around an innermost location.
inline constexpr std::size_t maximalDepth = 32;
/// What ends an inner location; the slash is the first character of the path behind it.
inline constexpr std::u16string_view separator = u"!/";

[[noreturn]] void malformed(char const* reason);

/// Refuses what does not fit the offsets of a location.
void requireLength(std::size_t length);

/// The length of the scheme that `text` starts with, without its colon; 0 where it starts with
/// none. A scheme has at least two characters.
template<class Char>
constexpr std::size_t schemeLength(std::basic_string_view<Char> text) noexcept {
    using fl::i18n::lcctype::isalnum_ascii;
    if (text.empty() || !fl::i18n::lcctype::isalpha_ascii(text[0])) {
        return 0;
    }
    std::size_t length = 1;
    while (length < text.size() && (isalnum_ascii(text[length]) || text[length] == Char{'-'} ||
                                    text[length] == Char{'.'} || text[length] == Char{'+'})) {
        ++length;
    }
    return length >= 2 ? length : 0;
}

/// The same length; refuses a text that starts with no scheme.
std::size_t requireScheme(std::u16string_view text);

/// What a piece of text is, since each has its own characters that stay encoded: those that mean
/// something else where they stand plain.
enum class Part : std::uint8_t { Path, Authority, Query };

/// Whether `raw` is its own decoded form: nothing in it is encoded, and nothing is malformed.
bool isDecoded(std::u16string_view raw) noexcept;

/// Appends the decoded form of `raw`. In an authority, a query or a fragment the delimiters stay
/// encoded, so that two texts have one decoded form only where they mean the same.
void appendDecoded(ustring& out, std::u16string_view raw, Part part);

/// Appends the identity of a path: decoded, every segment behind one slash, empty segments left
/// out, dot segments kept; "/" for a root. Says whether there are dot segments.
bool appendIdentity(ustring& out, std::u16string_view rawPath);

/// Appends an identity with its dot segments removed, never above the root.
void appendResolved(ustring& out, std::u16string_view identity);

/// The last segment of a decoded path without dot segments; empty for a root.
std::u16string_view lastSegment(std::u16string_view identity) noexcept;

/// Appends the decoded `name`, in which slashes stay slashes, as it stands in a text.
void appendEncoded(ustring& out, std::u16string_view name);

/// The one form of a decoded name: bytes outside UTF-8 that make a character become it.
ustring joinedName(std::u16string_view name);

inline bool isDotSegment(std::u16string_view segment) noexcept {
    return (segment.size() == 1 && segment[0] == u'.') ||
           (segment.size() == 2 && segment[0] == u'.' && segment[1] == u'.');
}

/// An authority in pieces, which are views of it.
struct Authority {
    std::u16string_view user;
    std::u16string_view host;
    std::uint16_t port = 0; ///< 0 where there is none
};

/// Whether an authority is a host alone, in the form that it compares by.
bool isPlainHost(std::u16string_view authority) noexcept;

Authority splitAuthority(std::u16string_view authority);

/// Appends what two authorities have in common where they name the same: decoded, the host in small
/// letters, nothing for what is empty.
void appendCanonicalAuthority(ustring& out, Authority const& authority);

} // namespace foundation::storage::provider::detail
