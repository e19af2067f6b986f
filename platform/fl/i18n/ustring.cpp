#include <fl/i18n/ustring.hpp>

#include <fl/i18n/conversion.hpp>

#include <ostream>

namespace fl::i18n {

std::ostream& operator<<(std::ostream& out, ustring const& text) {
    return out << toDisplayString(text);
}

} // namespace fl::i18n
