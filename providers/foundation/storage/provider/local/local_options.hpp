#pragma once

namespace foundation::storage::provider::local {

/// How the local disk is served. A plain value.
struct LocalOptions {
    /// Links are followed wherever something is asked, read, listed or copied: a link to a folder
    /// is then a folder. A walk may meet a folder many times: once on every way that leads to it,
    /// though never below itself. Folders that link to each other make very many ways: seven, each
    /// with links to the six others, are listed with 82,201 entries, and eight with 767,208.
    /// Removing and moving still act on the link. A link that leads nowhere stays an item of its
    /// own.
    bool followLinks = false;
};

} // namespace foundation::storage::provider::local
