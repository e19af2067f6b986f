#include <foundation/storage/provider/local/local_links.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/local/detail/failures.hpp>

#include <climits>
#include <stdexcept>
#include <unistd.h>

namespace foundation::storage::provider::local {

using detail::KernelPath;
using detail::throwErrno;

std::string linkTarget(KernelPath const& path, StorageIRI const& location) {
    std::string target(256, '\0');
    for (;;) {
        ssize_t const size = ::readlinkat(path.folder(), path.path(), target.data(), target.size());
        if (size < 0) {
            throwErrno(errno, location);
        }
        if (static_cast<std::size_t>(size) < target.size()) {
            target.resize(static_cast<std::size_t>(size));
            return target;
        }
        target.resize(target.size() * 2); // what filled the buffer may have been cut off
    }
}

ustring readLocalLink(StorageIRI const& location) {
    return fl::i18n::storageNameToUstring(linkTarget(KernelPath(location), location));
}

void createLocalLink(StorageIRI const& location, ustring const& target) {
    std::string bytes;
    try {
        bytes = fl::i18n::ustringToStorageName(target);
    } catch (std::range_error const&) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    if (bytes.find('\0') != std::string::npos) { // the kernel would cut it there
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    KernelPath const path(location);
    if (::symlinkat(bytes.c_str(), path.folder(), path.path()) != 0) {
        throwErrno(errno, location);
    }
}

} // namespace foundation::storage::provider::local
