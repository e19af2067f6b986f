#pragma once

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/vfs/errors/detail/rethrow_as_vfs_exception.hpp>

namespace foundation::storage::vfs::detail {

/// Runs an operation that reaches a provider; whatever it throws goes through the translator.
template<class Operation>
decltype(auto) translated(Operation operation) {
    try {
        return operation();
    } catch (...) {
        rethrowAsVfsException();
    }
}

/// Runs an existence query: the provider's own ResourceNotFound is the answer false. Only provider
/// exceptions go through the translator.
template<class Query>
bool existsTranslated(Query query) {
    try {
        return query();
    } catch (provider::Exception const& e) {
        if (e.getErrorCode() == provider::ErrorCode::ResourceNotFound) {
            return false;
        }
        rethrowAsVfsException();
    }
}

} // namespace foundation::storage::vfs::detail
