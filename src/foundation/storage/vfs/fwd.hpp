#pragma once

#include <cstdint>

namespace foundation::storage::vfs {

enum class ErrorCode : std::uint32_t;
enum class FolderRemovalPolicy : std::uint32_t;

class AbsoluteIRI;
class BufferedIODevice;
class CanonicalAbsoluteIRI;
class ChangeEventsNotSupportedException;
class ChangeEventsSubscriptionException;
class Exception;
class File;
class Folder;
class IODevice;
class IOCloseException;
class IOException;
class IOReadException;
class IOSeekException;
class IOWriteException;
class InvalidIRIException;
class PathComparator;
class PluggableStorageSystem;
class Resource;
class StorageSystem;
class StorageSystemDecorator;
class StorageSystemReference;
class UnsupportedIRISchemeException;

class fstream;
class ifstream;
class ofstream;

} // namespace foundation::storage::vfs
