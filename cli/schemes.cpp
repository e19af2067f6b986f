#include "schemes.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>

#include <algorithm>

namespace cli {

std::optional<SchemeKind> kindOfScheme(std::u16string_view scheme) {
    if (scheme == u"tar" || scheme == u"zip") {
        return SchemeKind::Container;
    }
    std::string const name = fl::i18n::toDisplayString(scheme);
    auto const all = foundation::storage::provider::standard::standardProviders();
    bool const known = std::any_of(all.begin(), all.end(),
                                   [&](auto const& provider) { return provider.scheme == name; });
    return known ? std::optional(SchemeKind::Storage) : std::nullopt;
}

bool isWrittenArchive(std::u16string_view scheme) {
    return scheme == u"zip";
}

} // namespace cli
