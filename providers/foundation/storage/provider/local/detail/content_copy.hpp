#pragma once

#include <foundation/storage/provider/copy_file_options.hpp>

#include <cstdint>
#include <optional>
#include <sys/stat.h>

namespace foundation::storage::provider::local::detail {

/// How a copy of content ended short.
struct ContentCopyFailure {
    enum class Where { Reading, Writing, Canceled };
    Where where;
    int error;
};

/// Up to this size content is moved by a single call: asking for shared blocks, or for holes, would
/// cost more than it could save.
inline constexpr off_t smallFile = 8 * 1024;

/// Copies everything from one open file to another, empty one: by sharing blocks where the file
/// system can, else inside the kernel, else through a buffer. Holes stay holes. Positions of
/// `source` and `destination` are undefined afterwards. `source` is `item`; of a file that
/// grows or shrinks meanwhile, what is found is copied.
std::optional<ContentCopyFailure> copyContent(int source, struct stat const& item, int destination,
                                              CopyProgress const& progress);

} // namespace foundation::storage::provider::local::detail
