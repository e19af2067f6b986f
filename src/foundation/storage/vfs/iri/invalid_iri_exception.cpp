#include <foundation/storage/vfs/iri/invalid_iri_exception.hpp>

namespace foundation::storage::vfs {

InvalidIRIException::InvalidIRIException(ustring const& text) : text_(text) {}
InvalidIRIException::~InvalidIRIException() = default;

char const* InvalidIRIException::what() const noexcept {
    return "foundation::storage::vfs::InvalidIRIException";
}

ustring InvalidIRIException::getInvalidIRIString() const {
    return text_;
}

} // namespace foundation::storage::vfs
