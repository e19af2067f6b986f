#pragma once

#include <fl/i18n/ustring.hpp>

#include <string>
#include <string_view>

/// Conversions between UTF-8, UTF-16 and UTF-32, with a fast path for ASCII. All are pure
/// functions, safe on any thread.
namespace fl::i18n {

/// UTF-8 to UTF-16. Throws std::range_error on malformed UTF-8 (overlong forms, surrogates and
/// values above U+10FFFF included).
FOUNDATION_EXPORT ustring to_ustring(std::string_view utf8);

/// UTF-16 to UTF-8. Throws std::range_error on a lone surrogate.
FOUNDATION_EXPORT std::string to_string(std::u16string_view text);

/// UTF-16 to UTF-32. Never fails: a lone surrogate passes through as it is.
FOUNDATION_EXPORT std::u32string to_u32string(std::u16string_view text);

/// The name that a storage gave as bytes, as UTF-16. Where the bytes are UTF-8 this is to_ustring;
/// a byte 0xNN that is not part of well-formed UTF-8 becomes the lone unit U+DC00+NN. Never fails,
/// and ustringToStorageName gives the same bytes back.
FOUNDATION_EXPORT ustring storageNameToUstring(std::string_view bytes);

/// Appends storageNameToUstring(bytes) to `out`, without a temporary.
FOUNDATION_EXPORT void appendStorageName(ustring& out, std::string_view bytes);

/// The reverse of storageNameToUstring: a lone unit U+DC80..U+DCFF becomes its byte. Throws
/// std::range_error on any other lone surrogate.
FOUNDATION_EXPORT std::string ustringToStorageName(std::u16string_view name);

/// Text for people and logs: as ustringToStorageName, but any other lone surrogate becomes U+FFFD,
/// so that it never fails.
FOUNDATION_EXPORT std::string toDisplayString(std::u16string_view text);

/// Converts UTF-16 to a narrow encoding. The only encoding is "UTF-8" (any case); the constructor
/// throws std::invalid_argument for another. An empty text gives an empty text; malformed text
/// throws std::range_error.
class FOUNDATION_EXPORT codecvt_ustring_to_string {
  public:
    explicit codecvt_ustring_to_string(std::string_view encoding);
    std::string operator()(std::u16string_view text) const;
};

} // namespace fl::i18n
