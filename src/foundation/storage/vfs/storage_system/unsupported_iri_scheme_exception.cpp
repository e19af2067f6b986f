#include <foundation/storage/vfs/storage_system/unsupported_iri_scheme_exception.hpp>

namespace foundation::storage::vfs {

UnsupportedIRISchemeException::UnsupportedIRISchemeException(ustring const& scheme)
    : scheme_(scheme) {}

UnsupportedIRISchemeException::~UnsupportedIRISchemeException() = default;

char const* UnsupportedIRISchemeException::what() const noexcept {
    return "foundation::storage::vfs::UnsupportedIRISchemeException";
}

ustring UnsupportedIRISchemeException::getScheme() const {
    return scheme_;
}

} // namespace foundation::storage::vfs
