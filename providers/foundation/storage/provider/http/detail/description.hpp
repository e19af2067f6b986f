#pragma once

#include <foundation/storage/provider/web/failure.hpp>
#include <foundation/storage/provider/web/headers.hpp>

#include <cstdint>
#include <optional>

namespace foundation::storage::provider::http::detail {

/// What a server tells of an item.
struct Description {
    int status = 0;
    std::optional<std::uint64_t> size = std::nullopt;
    web::Headers headers = {};
    bool isKindKnown = false; ///< whether it was asked, else it counts as a file
    // By WebDAV alone:
    bool isFolder = false;
    bool isKindTold = false; ///< else it is a guess
    bool isWritable = false;
    std::optional<std::int64_t> created = std::nullopt; ///< in seconds from 1970

    bool isThere() const noexcept { return web::isSuccess(status); }
    bool isMissing() const noexcept { return web::isAbsence(status); }
};

} // namespace foundation::storage::provider::http::detail
