#pragma once

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/spool/space.hpp>
#include <foundation/storage/provider/web/failure.hpp>

#include <new>
#include <system_error>

namespace foundation::storage::provider::s3::detail {

/// What is being thrown, as the failure of a request: some of it comes from this machine, such as
/// that there is no memory, or no thread. REQUIRES: called from a handler.
inline web::Failure currentFailure() {
    try {
        throw;
    } catch (web::Failure const& failure) {
        return failure;
    } catch (Exception const& failure) {
        return {failure.getErrorCode(),
                failure.getReason().empty() ? failure.what() : failure.getReason()};
    } catch (spool::Failure const& failure) {
        return {failure.code(), failure.what()};
    } catch (std::bad_alloc const&) {
        return {ErrorCode::InternalError, "there is no memory for it"};
    } catch (std::exception const& failure) {
        return {ErrorCode::InternalError, failure.what()};
    } catch (...) {
        return {ErrorCode::InternalError, "for no reason that is known"};
    }
}

/// Does something for a caller, who gets a failed request as provider::Exception with the location.
template<class Call>
auto translated(StorageIRI const& location, Call const& call) {
    try {
        return call();
    } catch (web::Failure const& failure) {
        throw Exception(failure.code(), location, failure.what());
    } catch (spool::Failure const& failure) {
        throw Exception(failure.code(), location, failure.what());
    } catch (std::system_error const&) { // of threads
        throw Exception(ErrorCode::InternalError, location);
    }
}

/// The same for a copy, which fails by its source or by its destination.
template<class Call>
auto translatedCopy(StorageIRI const& source, StorageIRI const& destination, Call const& call) {
    return translated(destination, [&] {
        try {
            return call();
        } catch (SourceFailure const& failure) {
            throw Exception(failure.code(), source, failure.what());
        }
    });
}

} // namespace foundation::storage::provider::s3::detail
