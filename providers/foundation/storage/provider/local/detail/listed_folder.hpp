#pragma once

#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/local/detail/file_descriptor.hpp>
#include <foundation/storage/provider/local/detail/folder_chunk.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <fcntl.h>
#include <optional>
#include <sys/stat.h>

namespace foundation::storage::provider::local::detail {

/// How a folder is opened to be read.
inline constexpr int readFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// Which folder it is, so that another one under its name is noticed.
struct FolderIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    friend bool operator==(FolderIdentity const&, FolderIdentity const&) = default;
};

/// Of an open folder. The error number, or 0.
int identify(int folder, FolderIdentity& result) noexcept;

/// Opens a folder to read it; a link is followed. Throws provider::Exception naming `location`.
FileDescriptor openListedFolder(StorageIRI const& location);

/// Opens a folder once more, `flags` as in open(2); the code of a failure.
std::optional<ErrorCode> reopenListedFolder(StorageIRI const& location, int flags,
                                            FileDescriptor& result);

/// Whether an open folder is the one of this identity, ResourceNotFound where it is not. Then moves
/// it to where the entries behind `chunk` are read. The code of a failure.
std::optional<ErrorCode> resumeFolder(int folder, FolderIdentity const& identity,
                                      FolderChunk const& chunk);

} // namespace foundation::storage::provider::local::detail
