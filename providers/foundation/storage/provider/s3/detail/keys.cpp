#include <foundation/storage/provider/s3/detail/keys.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <algorithm>
#include <stdexcept>

namespace foundation::storage::provider::s3::detail {

namespace {

bool isUtf8(std::string_view bytes) noexcept {
    auto const byteAt = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    for (std::size_t i = 0; i < bytes.size();) {
        unsigned const first = byteAt(i);
        if (first < 0x80) {
            ++i;
            continue;
        }
        std::size_t const length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
        if (first < 0xC2 || first > 0xF4 || bytes.size() - i < length) {
            return false;
        }
        // Overlong forms, surrogates and what is above U+10FFFF show in the second byte.
        unsigned const least = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
        unsigned const most = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
        if (byteAt(i + 1) < least || byteAt(i + 1) > most) {
            return false;
        }
        for (std::size_t k = 2; k < length; ++k) {
            if ((byteAt(i + k) & 0xC0) != 0x80) {
                return false;
            }
        }
        i += length;
    }
    return true;
}

} // namespace

ItemKey ItemKey::parent() const {
    std::size_t const slash = file.rfind('/');
    return {slash == std::string::npos ? std::string() : file.substr(0, slash)};
}

ItemKey itemKey(StorageIRI const& location) {
    if (!location.hasPath() || location.hasQuery() || location.hasFragment() ||
        location.hasInnerIRI()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    ustring const& path = location.getResolvedPath();
    ItemKey key;
    try {
        key.file = fl::i18n::ustringToStorageName(
            std::u16string_view(path).substr(path.starts_with(u'/') ? 1 : 0));
    } catch (std::range_error const&) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    if (key.file.size() > longestKey || !isUtf8(key.file)) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return key;
}

bool isPath(std::string_view path) noexcept {
    if (path.empty() || path.find('\0') != std::string_view::npos || !isUtf8(path)) {
        return false;
    }
    for (std::size_t start = 0;;) {
        std::size_t const slash = path.find('/', start);
        std::string_view const segment =
            path.substr(start, slash == std::string_view::npos ? slash : slash - start);
        if (segment.empty() || segment == "." || segment == "..") {
            return false;
        }
        if (slash == std::string_view::npos) {
            return true;
        }
        start = slash + 1;
    }
}

StorageIRI itemBelow(StorageIRI const& location, std::string_view folder, std::string_view key) {
    std::string_view path = key;
    path.remove_prefix(std::min(path.size(), folder.size()));
    if (path.ends_with('/')) { // the marker of a folder
        path.remove_suffix(1);
    }
    return isPath(path) ? StorageIRI(location, fl::i18n::to_ustring(path)) : location;
}

} // namespace foundation::storage::provider::s3::detail
