#include <foundation/storage/provider/zip/detail/archive_path.hpp>

#include <foundation/storage/provider/exception.hpp>

#include <fl/i18n/conversion.hpp>

#include <stdexcept>

namespace foundation::storage::provider::zip::detail {

std::string pathInArchive(StorageIRI const& location) {
    if (location.hasPath() && location.hasInnerIRI() && !location.hasQuery() &&
        !location.hasFragment()) {
        try {
            return fl::i18n::ustringToStorageName(location.getResolvedPath());
        } catch (std::range_error const&) {
            // a lone surrogate
        }
    }
    throw Exception(ErrorCode::InvalidLocation, location);
}

} // namespace foundation::storage::provider::zip::detail
