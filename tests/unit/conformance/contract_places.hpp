#pragma once

#include <foundation/storage/conformance/contract.hpp>

namespace conformance_test {

/// A new store in memory.
foundation::storage::conformance::Place memoryPlace();

/// A folder of its own on the real disk, which goes with the place.
foundation::storage::conformance::Place localPlace();

} // namespace conformance_test
