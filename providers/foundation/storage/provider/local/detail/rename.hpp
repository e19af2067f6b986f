#pragma once

namespace foundation::storage::provider::local::detail {

/// Renames and fails with EEXIST where anything has the new name, also on file systems whose
/// renameat2(2) knows no flags. The error number, or 0.
int renameWithoutReplacing(int oldFolder, char const* oldPath, int newFolder,
                           char const* newPath) noexcept;

/// renameat(2): replaces what has the new name. The error number, or 0.
int renameReplacing(int oldFolder, char const* oldPath, int newFolder,
                    char const* newPath) noexcept;

} // namespace foundation::storage::provider::local::detail
