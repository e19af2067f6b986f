#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>

namespace fault_sweep {

/// An item of the disk as it was seen.
struct PicturedItem {
    mode_t mode = 0;       ///< kind and permissions
    std::string content;   ///< of a file; the target of a link
    std::int64_t time = 0; ///< of the last change, in nanoseconds

    bool isFile() const noexcept;
    /// Kind and content; permissions and time are another matter.
    bool isSameAs(PicturedItem const& other) const noexcept;
};

/// Everything below a folder, by its path from there, as it was at one moment; links are not
/// followed. Made without the system that is under test. Throws std::system_error.
using TreePicture = std::map<std::string, PicturedItem>;
TreePicture pictureOf(std::string const& folder);

std::size_t countOpenDescriptors();

} // namespace fault_sweep
