#include <foundation/storage/provider/iri_prefix.hpp>

#include <foundation/storage/provider/detail/location_text.hpp>

namespace foundation::storage::provider {

namespace {

template<class Char>
bool startsWithSchemes(std::basic_string_view<Char> text) noexcept {
    for (;;) {
        // The shortest is "ab:/".
        if (text.size() < 4) {
            return false;
        }
        std::size_t const colon = detail::schemeLength(text);
        if (colon == 0 || colon + 1 >= text.size() || text[colon] != Char{':'}) {
            return false;
        }
        if (text[colon + 1] == Char{'/'}) {
            return true;
        }
        text.remove_prefix(colon + 1);
    }
}

} // namespace

bool hasIRIPrefix(std::u32string_view text) noexcept {
    return startsWithSchemes(text);
}

bool hasIRIPrefix(std::u16string_view text) noexcept {
    return startsWithSchemes(text);
}

} // namespace foundation::storage::provider
