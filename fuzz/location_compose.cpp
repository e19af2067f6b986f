// Locations made from others: nested ones give back what they were made from, and children have
// their names and their folders.

#include "consumed_bytes.hpp"
#include "location_checks.hpp"
#include "require.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <optional>

using namespace foundation::storage::provider;

namespace {

/// UTF-8 with an occasional stray byte, or any units at all.
ustring text(ConsumedBytes& data) {
    return data.flag() ? fl::i18n::storageNameToUstring(data.text(64)) : data.units(24);
}

std::optional<StorageIRI> nested(ustring const& scheme, StorageIRI const& inner,
                                 ustring const& path) {
    try {
        return StorageIRI(scheme, inner, path);
    } catch (MalformedIRIException const&) {
        return std::nullopt;
    }
}

std::optional<StorageIRI> child(StorageIRI const& base, ustring const& name) {
    try {
        return StorageIRI(base, name);
    } catch (MalformedIRIException const&) {
        return std::nullopt;
    } catch (Exception const& e) {
        require(e.getErrorCode() == ErrorCode::InvalidLocation);
        require((u"/" + name + u"/").find(u"/./") != ustring::npos ||
                (u"/" + name + u"/").find(u"/../") != ustring::npos);
        return std::nullopt;
    }
}

/// The one form of a name, that a storage would give it.
ustring asStored(ustring const& name) {
    return fl::i18n::storageNameToUstring(fl::i18n::ustringToStorageName(name));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    ConsumedBytes data(bytes, size);
    std::optional<StorageIRI> location;
    try {
        location = StorageIRI(fl::i18n::storageNameToUstring(data.text(96)));
    } catch (MalformedIRIException const&) {
        location = StorageIRI(u"file:///a!/b");
    }
    while (!data.empty()) {
        if (data.flag()) {
            ustring const scheme = data.flag() ? u"zip" : text(data);
            ustring const path = data.flag() ? u"/" + text(data) : text(data);
            if (auto const outer = nested(scheme, *location, path)) {
                require(outer->getScheme() == scheme);
                require(outer->getPath() == path);
                checkSame(outer->getInnerIRI(), *location);
                checkLocation(*outer);
                location = outer;
            }
        } else {
            ustring const name = text(data);
            auto const below = child(*location, name);
            if (!below) {
                continue;
            }
            checkLocation(*below);
            if (!name.empty() && name.find(u'/') == ustring::npos) {
                require(below->getName() == asStored(name));
                require(!location->hasPath() || location->isAncestorOf(*below));
                checkSame(StorageIRI(below->getParent(), below->getName()), *below);
            } else if (name.empty()) {
                require(below->getPath() == location->getPath());
            } else if (name.front() == u'/') {
                require(below->getScheme() == location->getScheme());
                require(below->getAuthorityView() == location->getAuthorityView());
            }
            location = below;
        }
    }
    return 0;
}
