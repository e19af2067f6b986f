#include "schemes.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>

#include <algorithm>

namespace cli {

namespace standard = foundation::storage::provider::standard;

namespace {

standard::StandardProvider const* providerOf(std::u16string_view scheme) {
    std::string const name = fl::i18n::toDisplayString(scheme);
    auto const all = standard::standardProviders();
    auto const found = std::find_if(all.begin(), all.end(),
                                    [&](auto const& provider) { return provider.scheme == name; });
    return found == all.end() ? nullptr : &*found;
}

} // namespace

std::optional<SchemeKind> kindOfScheme(std::u16string_view scheme) {
    if (scheme == u"tar" || scheme == u"zip") {
        return SchemeKind::Container;
    }
    return providerOf(scheme) != nullptr ? std::optional(SchemeKind::Storage) : std::nullopt;
}

bool namesServers(std::u16string_view scheme) {
    auto const* const provider = providerOf(scheme);
    return provider != nullptr && provider->namesServers;
}

bool isWrittenArchive(std::u16string_view scheme) {
    return scheme == u"zip";
}

} // namespace cli
