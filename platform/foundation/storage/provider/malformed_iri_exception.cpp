#include <foundation/storage/provider/malformed_iri_exception.hpp>

namespace foundation::storage::provider {

MalformedIRIException::MalformedIRIException(std::string const& reason)
    : Exception(std::invalid_argument(reason)) {}

MalformedIRIException const* MalformedIRIException::clone() const {
    return new MalformedIRIException(*this);
}

void MalformedIRIException::rethrow() const {
    throw MalformedIRIException(*this);
}

} // namespace foundation::storage::provider
