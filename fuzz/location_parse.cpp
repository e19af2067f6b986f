// Any text: it is refused as malformed, or is a location of which everything holds.

#include "location_checks.hpp"
#include "require.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/iri_prefix.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

using namespace foundation::storage::provider;

namespace {

void parse(ustring const& text) {
    require(hasIRIPrefix(std::u16string_view(text)) ==
            hasIRIPrefix(std::u32string_view(fl::i18n::to_u32string(text))));
    try {
        StorageIRI const location(text);
        require(hasIRIPrefix(std::u16string_view(text)));
        require(location.toString() == text);
        checkLocation(location);
    } catch (MalformedIRIException const&) {
        return;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string_view const bytes(reinterpret_cast<char const*>(data) + 1, size - 1);
    if (data[0] % 2 == 0) {
        parse(fl::i18n::storageNameToUstring(bytes));
    } else {
        // Every unit is possible, halves of characters too.
        ustring text(bytes.size() / 2, u'\0');
        std::memcpy(text.data(), bytes.data(), text.size() * sizeof(char16_t));
        parse(text);
    }
    return 0;
}
