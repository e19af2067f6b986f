#pragma once

#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/local/detail/file_descriptor.hpp>
#include <foundation/storage/provider/local/detail/folder_chunk.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <cstdint>
#include <fcntl.h>
#include <optional>

namespace foundation::storage::provider::local::detail {

/// How a folder is opened to be read.
inline constexpr int readFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// Which folder it is, so that another one under its name is noticed. The number alone does not
/// tell: a file system may give that of a removed folder to the next one that is made.
struct FolderIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t created = 0; ///< in nanoseconds, modulo; 0 where the file system does not tell
    /// Of the handle that the file system knows the folder by, over all folders that ever had the
    /// number; 0 where `created` says enough, or there are no handles.
    std::uint64_t handleHash = 0;

    /// Whether both are one folder, of two that are there at the same time.
    bool looksLike(FolderIdentity const& other) const noexcept {
        return device == other.device && inode == other.inode && created == other.created;
    }
};

/// Of an open folder, but without `handleHash`: what looksLike() compares. The error number, or 0.
int identifyBriefly(int folder, FolderIdentity& result) noexcept;

/// Of an open folder. The error number, or 0.
int identify(int folder, FolderIdentity& result) noexcept;

/// Whether an open folder is the one of this identity, ResourceNotFound where it is not. The code
/// of a failure.
std::optional<ErrorCode> checkIdentity(int folder, FolderIdentity const& identity) noexcept;

/// Opens a folder to read it; a link is followed. Throws provider::Exception naming `location`.
FileDescriptor openListedFolder(StorageIRI const& location);

/// Opens a folder once more, `flags` as in open(2); the code of a failure.
std::optional<ErrorCode> reopenListedFolder(StorageIRI const& location, int flags,
                                            FileDescriptor& result);

/// As checkIdentity(). Then moves the folder to where the entries behind `chunk` are read.
std::optional<ErrorCode> resumeFolder(int folder, FolderIdentity const& identity,
                                      FolderChunk const& chunk);

} // namespace foundation::storage::provider::local::detail
