#pragma once

#include <foundation/export.hpp>

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace foundation::storage::conformance {

/// What a provider can be asked for: the operations of provider::IProvider, of the cursors that its
/// listings give, of the streams that it opens, and of its extensions.
enum class Operation : std::uint32_t {
    Exists,
    ExistsExtended,
    FileExists,
    FolderExists,
    HasFeature,
    GetCanonicalLocation,
    GetPathComparator,
    GetFilenameSensitivity,
    GetFileAttributes,
    GetFolderAttributes,
    GetExtendedAttributes,
    SetLastModified,
    SetWritable,
    CreateFile,
    CreateFolder,
    CreateFolderRecursive,
    RemoveFile,
    RemoveFolder,
    RemoveFolderRecursively,
    CopyFile,
    MoveFile,
    MoveFolder,
    OpenStream,
    OpenReadOnlyStream,
    ListAll,
    ListFiles,
    ListFolders,
    ListAllNamesOnly,
    ListFilesNamesOnly,
    ListFoldersNamesOnly,
    ListAllRecursive,
    ListAllRecursiveNamesOnly,
    PublishFileEvents,
    PublishFolderEvents,
    StopPublishingFileEvents,
    StopPublishingFolderEvents,
    // of a cursor:
    HasNext,
    Advance,
    CurrentEntry,
    CloneIterator,
    // of a stream:
    Read,
    Write,
    Seek,
    Close,
    // of extensions:
    ReadLink,
    CreateLink,
    OpenReplacement,
    SetFolderAttributes,
    CopySmallFiles,
    FlushFilesystem,
};

inline constexpr std::size_t operationCount =
    static_cast<std::size_t>(Operation::FlushFilesystem) + 1;

/// Writes the name as it stands above.
FOUNDATION_EXPORT std::ostream& operator<<(std::ostream& out, Operation operation);

} // namespace foundation::storage::conformance
