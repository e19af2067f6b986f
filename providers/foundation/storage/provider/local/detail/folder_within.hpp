#pragma once

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>

namespace foundation::storage::provider::local::detail {

/// Opens the folder that is the entry `name` of an open folder, to read it: not what a link leads
/// to (ENOTDIR), and not what another file system, or another part of this one, shows there
/// (EXDEV). The error number, or 0.
int openFolderWithin(int folder, char const* name, FileDescriptor& result) noexcept;

} // namespace foundation::storage::provider::local::detail
