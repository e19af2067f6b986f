#pragma once

#include <cstdint>

namespace foundation::storage::provider::container {

/// Other: a pipe, a socket or a device.
enum class EntryKind : std::uint8_t { File, Link, Folder, Other };

} // namespace foundation::storage::provider::container
