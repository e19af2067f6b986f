#pragma once

#include <boost/variant/variant_fwd.hpp>

#include <cstdint>

namespace foundation::storage::vfs {

enum class ErrorCode : std::uint32_t;
enum class FolderRemovalPolicy : std::uint32_t;
enum class FolderVisitResult : std::uint32_t;
enum class WithRecursiveChangeEvents : std::uint32_t;

class AbsoluteIRI;
class BufferedIODevice;
class CanonicalAbsoluteIRI;
class ChangeEventsNotSupportedException;
class ChangeEventsSubscriptionException;
class Event;
class EventData;
class EventPublisher;
class Exception;
class ExtendedEventData;
class File;
class FileEntry;
class Folder;
class FolderEntry;
class FolderVisitor;
class IODevice;
class IOCloseException;
class IOException;
class IOReadException;
class IOSeekException;
class IOWriteException;
class InvalidIRIException;
class ListEntry;
class PathComparator;
class PluggableStorageSystem;
class ProviderFactoryBackedStorageSystem;
class RecursiveEventPublisher;
class Resource;
class StorageSystem;
class StorageSystemDecorator;
class StorageSystemReference;
class UnsupportedIRISchemeException;

template<class T>
class FolderListing;
template<class T>
class FolderListingIterator;

/// An item of either kind.
using FileOrFolder = boost::variant<File, Folder>;
/// A result of a listing whose kind is known.
using FileOrFolderEntry = boost::variant<FileEntry, FolderEntry>;

class fstream;
class ifstream;
class ofstream;

} // namespace foundation::storage::vfs
