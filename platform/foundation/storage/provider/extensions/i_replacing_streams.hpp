#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/fwd.hpp>

#include <memory>

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

} // namespace foundation::storage::provider::extensions
