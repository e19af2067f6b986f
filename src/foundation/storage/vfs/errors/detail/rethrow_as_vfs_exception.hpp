#pragma once

namespace foundation::storage::vfs {

/// The one translator. Turns the provider's exception that is being handled into the system's own
/// and throws that; any other exception continues unchanged, so nesting is harmless. Keeps no
/// state. REQUIRES: an exception is being handled.
[[noreturn]] void rethrowAsVfsException();

} // namespace foundation::storage::vfs
