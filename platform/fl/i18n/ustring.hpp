#pragma once

#include <foundation/export.hpp>

#include <iosfwd>
#include <string>

namespace fl::i18n {

/// A UTF-16 string. Names, paths and locations are of this type.
using ustring = std::basic_string<char16_t>;

/// Writes `text` as UTF-8. A lone unit of the range U+DC80..U+DCFF is written as the byte that it
/// stands for (see storageNameToUstring), any other lone surrogate as U+FFFD; so this never fails
/// on malformed text and a name prints as the storage spells it.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, ustring const& text);

} // namespace fl::i18n
