#pragma once

#include <foundation/storage/conformance/provider_decorator.hpp>

#include <cstdint>
#include <memory>

namespace conformance_test {

/// What is wrong with a provider.
enum class Flaw : std::uint32_t {
    None,
    ErrorCodeSwapped,        ///< createFile over something says InvalidLocation
    MissingFileIsAnotherOne, ///< removeFile of what is missing names the folder
};

/// A store in memory that is right in everything but one.
std::shared_ptr<foundation::storage::provider::IProvider> buildFlawedProvider(Flaw flaw);

} // namespace conformance_test
