#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/fwd.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <cstdint>
#include <memory>
#include <optional>

namespace foundation::storage::provider::extensions {

/// Second base of a provider that can replace a file as a whole; found by a dynamic cast.
class FOUNDATION_EXPORT IReplacingStreams {
  public:
    virtual ~IReplacingStreams();
    /// A stream for the complete new content of a file. Under the final name stands the old
    /// content, or nothing, until a successful close() publishes the new one; destruction without
    /// it leaves no trace. The policy is checked at once, and again when publishing: an existing
    /// destination gives code ResourceAlreadyExists under FailIfExists and KeepExisting, a
    /// read-only one PermissionDenied. A failed publishing step may be tried again with another
    /// close().
    virtual std::unique_ptr<ByteStream> openReplacement(StorageIRI const& location,
                                                        ReplacementPolicy const& policy) = 0;
};

/// What a new file is to get; what is empty is as the storage makes it.
struct NewFileAttributes {
    std::optional<std::uint32_t> mode; ///< permission bits; no others are taken
    std::optional<Timestamp> lastModified;
};

/// Second base of a stream that openReplacement() gave, where the new file can have a mode and a
/// time of the caller's when it is published; found by a dynamic cast. A file that is replaced
/// leaves its mode to the new one all the same.
class FOUNDATION_EXPORT INewFileAttributes {
  public:
    virtual ~INewFileAttributes();
    /// REQUIRES: the stream is not closed yet.
    virtual void setNewFileAttributes(NewFileAttributes const& attributes) = 0;
};

} // namespace foundation::storage::provider::extensions
