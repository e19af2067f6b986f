#include <foundation/storage/provider/storage_iri.hpp>

#include <foundation/storage/provider/detail/location_text.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/iri_prefix.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <algorithm>

namespace foundation::storage::provider {

namespace {

constexpr std::u16string_view localScheme = u"file";

/// Whether the location is one of the local disk, without a host and with nothing but a path.
bool isPlainPath(StorageIRI const& location) noexcept {
    return location.getSchemeView() == localScheme && !location.hasInnerIRI() &&
           location.hasPath() && location.getAuthorityView().empty() && !location.hasQuery() &&
           !location.hasFragment();
}

ustring absoluteBase(fl::filesystem::path const& base) {
    ustring text = base.external_string();
    if (!text.starts_with(u'/')) {
        ustring whole = fl::filesystem::current_path().external_string();
        if (!text.empty()) {
            whole.append(1, u'/').append(text);
        }
        return whole;
    }
    return text;
}

/// `relative` below `folder`. Segments `.` say nothing there and go; `..` stays for the kernel.
ustring joined(ustring folder, std::u16string_view relative) {
    std::size_t begin = 0;
    while (begin < relative.size()) {
        std::size_t const end = std::min(relative.find(u'/', begin), relative.size());
        std::u16string_view const segment = relative.substr(begin, end - begin);
        if (!segment.empty() && segment != u".") {
            if (!folder.ends_with(u'/')) {
                folder += u'/';
            }
            folder += segment;
        }
        begin = end + 1;
    }
    return folder;
}

StorageIRI canonicalized(StorageIRI const& location) {
    if (location.hasInnerIRI()) {
        StorageIRI const inner = location.getInnerIRI();
        StorageIRI const canonicalInner = canonicalized(inner);
        StorageIRI const resolved = location.withResolvedPath();
        return StorageIRI(location.getScheme(), canonicalInner, resolved.getPath());
    }
    // Without a path there is nothing on the disk to ask.
    if (location.getSchemeView() == localScheme && location.hasPath()) {
        return canonicalLocalLocation(location);
    }
    return location.withResolvedPath();
}

} // namespace

StorageIRI toStorageIRI(ustring const& text, fl::filesystem::path const& base) {
    if (hasIRIPrefix(std::u16string_view(text))) {
        return StorageIRI(text);
    }
    // It would name the base itself, which hardly anybody means who leaves a word out.
    if (text.empty()) {
        detail::malformed("an empty text is no location");
    }
    static StorageIRI const root(u"file:///");
    return StorageIRI(root, text.front() == u'/' ? text : joined(absoluteBase(base), text));
}

StorageIRI toCanonicalizedStorageIRI(ustring const& text, fl::filesystem::path const& base) {
    StorageIRI const location = toStorageIRI(text, base);
    try {
        return canonicalized(location);
    } catch (Exception const& e) {
        // The failure is that of an inner location where there is one; the location asked is this.
        throw Exception(e.getErrorCode(), location);
    }
}

ustring fromStorageIRI(StorageIRI const& iri) {
    return isPlainPath(iri) ? iri.getDecodedPath() : iri.toString();
}

} // namespace foundation::storage::provider
