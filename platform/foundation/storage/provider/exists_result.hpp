#pragma once

#include <cstdint>

namespace foundation::storage::provider {

/// What is at a location. A link is a File, whatever it leads to.
enum class ExistsResult : std::uint32_t { File = 0, Folder = 1, Nothing = 2 };

/// The same in detail.
enum class ExtendedExistsResult : std::uint32_t {
    File = 0,
    Folder = 1,
    LinkToFile = 2,
    LinkToFolder = 3,
    DanglingLink = 4,
    Other = 5, ///< a FIFO, socket or device
    Nothing = 6,
};

} // namespace foundation::storage::provider
