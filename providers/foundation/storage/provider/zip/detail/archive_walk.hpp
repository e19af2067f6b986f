#pragma once

#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/zip/detail/archive_index.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace foundation::storage::provider::zip::detail {

enum class LastLink { Itself, Followed };

/// Where a path leads in an archive.
struct ArchivePlace {
    ArchiveIndex::Number entry = ArchiveIndex::none;
    /// The folder of the last name, where that is there.
    ArchiveIndex::Number folder = ArchiveIndex::none;
    std::string name;               ///< the last one, where `entry` is missing
    std::optional<ErrorCode> error; ///< why there is none
};

/// Goes a path of names from the root. A link on the way, and a last one that is to be followed,
/// leads from its own folder, and never out of the archive: above the root is the root.
/// `targetOf` reads a link, and may throw.
ArchivePlace walk(ArchiveIndex const& index, std::string_view path, LastLink last,
                  std::function<std::string(ArchiveIndex::Number)> const& targetOf);

} // namespace foundation::storage::provider::zip::detail
