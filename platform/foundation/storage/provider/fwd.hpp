#pragma once

#include <cstdint>

namespace foundation::storage::provider {

enum class ErrorCode : std::uint32_t;
enum class ExistsResult : std::uint32_t;
enum class ExtendedExistsResult : std::uint32_t;
enum class ExtendedFeature : std::uint32_t;
enum class ReplacementPolicy : std::uint32_t;

class ByteStream;
class ByteStreamDevice;
class ByteStreamFailure;
class ChangeEventsNotSupportedException;
class ChangeEventsSubscriptionException;
class Exception;
class FileAttributes;
class FolderAttributes;
class FolderEntry;
class IFolderEntryIterator;
class IProvider;
class StorageIRI;
class StorageItem;

struct ByteStreamOpenOptions;
struct CopyFileOptions;

} // namespace foundation::storage::provider
