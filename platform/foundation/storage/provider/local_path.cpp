#include <foundation/storage/provider/local_path.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/detail/location_text.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>

#include <unistd.h>

namespace foundation::storage::provider {

namespace {

/// As many as the kernel follows.
constexpr int maximalLinks = 40;

struct Free {
    void operator()(char* text) const { std::free(text); }
};

/// Empty where the call fails; errno says why.
std::string realPath(std::string const& path) {
    std::unique_ptr<char, Free> const text(::realpath(path.c_str(), nullptr));
    return text ? std::string(text.get()) : std::string();
}

std::string canonicalPath(std::string path, StorageIRI const& location) {
    auto const fail = [&](ErrorCode code) { throw Exception(code, location); };
    for (int links = 0; links <= maximalLinks; ++links) {
        std::string whole = realPath(path);
        if (!whole.empty()) {
            return whole;
        }
        if (errno != ENOENT) {
            fail(errorCodeOfErrno(errno));
        }

        // Something is missing: the last segment may be, and where it is a link that leads nowhere,
        // the last segment of what it names.
        path.resize(path.find_last_not_of('/') + 1);
        std::size_t const slash = path.rfind('/');
        if (slash == std::string::npos) {
            fail(ErrorCode::ResourceNotFound);
        }
        std::string const last = path.substr(slash + 1);
        if (last.empty() || last == "." || last == "..") {
            fail(ErrorCode::ResourceNotFound);
        }
        std::string folder = realPath(path.substr(0, slash + 1));
        if (folder.empty()) {
            fail(errorCodeOfErrno(errno));
        }
        if (folder.back() != '/') {
            folder += '/';
        }
        std::string item = folder + last;
        std::array<char, PATH_MAX> target;
        ssize_t const length = ::readlink(item.c_str(), target.data(), target.size());
        if (length < 0 && errno == ENOENT) {
            return item;
        }
        if (length < 0 && errno != EINVAL) {
            fail(errorCodeOfErrno(errno));
        }
        if (length < 0) {
            path = item; // it has come into being meanwhile
        } else {
            std::string const link(target.data(), static_cast<std::size_t>(length));
            path = link.starts_with('/') ? link : folder + link;
        }
    }
    throw Exception(ErrorCode::InvalidLocation, location);
}

} // namespace

std::string toLocalPath(StorageIRI const& location) {
    std::u16string_view const authority = location.getAuthorityView();
    if (location.getSchemeView() != u"file" || location.hasInnerIRI() || !location.hasPath() ||
        !(authority.empty() || authority == u"localhost") || location.hasQuery() ||
        location.hasFragment()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return fl::i18n::ustringToStorageName(location.getDecodedPath());
}

StorageIRI fromLocalPath(std::string_view absolutePath) {
    if (!absolutePath.starts_with('/')) {
        detail::malformed("a path of the local disk begins with a slash");
    }
    ustring text = u"file://";
    detail::appendEncoded(text, fl::i18n::storageNameToUstring(absolutePath));
    return StorageIRI(text);
}

StorageIRI canonicalLocalLocation(StorageIRI const& location) {
    return fromLocalPath(canonicalPath(toLocalPath(location), location));
}

} // namespace foundation::storage::provider
