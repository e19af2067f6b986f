#pragma once

#include <cstdint>
#include <string>

namespace foundation::storage::provider::local::detail {

struct WatchPublication;

/// A folder that is watched for one publication: the published folder and, where it is published
/// with all that is below, those in it; or the folder in which the published item is expected.
/// It knows its name and the folder above, never its path, which changes with every move above it.
struct WatchNode {
    static constexpr int unwatched = -1;

    WatchPublication* owner = nullptr;
    WatchNode* parent = nullptr;
    WatchNode* firstChild = nullptr;
    WatchNode* next = nullptr; ///< in the same folder
    WatchNode* previous = nullptr;
    WatchNode* nextOfWatch = nullptr; ///< a further one with the same watch of the kernel
    int watch = unwatched;
    std::uint32_t seenBy = 0; ///< the last survey that met it
    bool isUnsurveyed = false;
    std::string name; ///< in `parent`
};

} // namespace foundation::storage::provider::local::detail
