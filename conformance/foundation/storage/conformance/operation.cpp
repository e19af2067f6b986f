#include <foundation/storage/conformance/operation.hpp>

#include <array>
#include <ostream>

namespace foundation::storage::conformance {

namespace {

constexpr std::array<char const*, operationCount> names{
    "Exists",
    "ExistsExtended",
    "FileExists",
    "FolderExists",
    "HasFeature",
    "GetCanonicalLocation",
    "GetPathComparator",
    "GetFilenameSensitivity",
    "GetFileAttributes",
    "GetFolderAttributes",
    "GetExtendedAttributes",
    "SetLastModified",
    "SetWritable",
    "CreateFile",
    "CreateFolder",
    "CreateFolderRecursive",
    "RemoveFile",
    "RemoveFolder",
    "RemoveFolderRecursively",
    "CopyFile",
    "MoveFile",
    "MoveFolder",
    "OpenStream",
    "OpenReadOnlyStream",
    "ListAll",
    "ListFiles",
    "ListFolders",
    "ListAllNamesOnly",
    "ListFilesNamesOnly",
    "ListFoldersNamesOnly",
    "ListAllRecursive",
    "ListAllRecursiveNamesOnly",
    "PublishFileEvents",
    "PublishFolderEvents",
    "StopPublishingFileEvents",
    "StopPublishingFolderEvents",
    "HasNext",
    "Advance",
    "CurrentEntry",
    "CloneIterator",
    "Read",
    "Write",
    "Seek",
    "Close",
    "ReadLink",
    "CreateLink",
    "OpenReplacement",
    "SetFolderAttributes",
    "CopySmallFiles",
    "FlushFilesystem",
};

} // namespace

std::ostream& operator<<(std::ostream& out, Operation operation) {
    auto const index = static_cast<std::size_t>(operation);
    return out << (index < names.size() ? names[index] : "unknown operation");
}

} // namespace foundation::storage::conformance
