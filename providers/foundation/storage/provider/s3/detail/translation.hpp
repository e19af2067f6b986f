#pragma once

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/web/failure.hpp>

namespace foundation::storage::provider::s3::detail {

/// Does something for a caller, who gets a failed request as provider::Exception with the location.
template<class Call>
auto translated(StorageIRI const& location, Call const& call) {
    try {
        return call();
    } catch (web::Failure const& failure) {
        throw Exception(failure.code(), location);
    }
}

} // namespace foundation::storage::provider::s3::detail
