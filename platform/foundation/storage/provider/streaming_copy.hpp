#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/provider/fwd.hpp>

namespace foundation::storage::provider {

/// Copies a file between any two providers through one large buffer, and honours policy and
/// progress. A link is made again where both providers have links, otherwise a linked file's bytes
/// are copied, and any other link is refused with code UnsupportedOperation; so are FIFOs, sockets
/// and devices. Two names of one item are refused with code InvalidLocation, and so are equal
/// places of two providers of one kind where the destination would be written in place.
///
/// Where the destination offers extensions::IReplacingStreams, its final name holds the old content
/// or the complete new one; elsewhere it is written in place, and a failure removes only what this
/// created. Failures of the streams come out as they are. A canceled copy throws
/// provider::Exception with code IOError, naming the destination.
///
/// Returns CopiedWithTimes where the new file got the mode and the time of its source, for which
/// the destination's stream offers extensions::INewFileAttributes, and Copied elsewhere; for a link
/// CopiedWithTimes, since what a caller would then do to it would be done to what it leads to.
FOUNDATION_EXPORT CopyStatus copyFileByStreams(IProvider& sourceProvider, StorageIRI const& source,
                                               StorageItem const& destination,
                                               CopyFileOptions const& options);

} // namespace foundation::storage::provider
