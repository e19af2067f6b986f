#pragma once

namespace foundation::storage::provider::local {

/// How the local disk is served. A plain value.
struct LocalOptions {
    /// Links are followed wherever something is asked, read, listed or copied: a link to a folder
    /// is then a folder, and a walk may meet a folder twice, or itself. Removing and moving still
    /// act on the link. A link that leads nowhere stays an item of its own.
    bool followLinks = false;
};

} // namespace foundation::storage::provider::local
