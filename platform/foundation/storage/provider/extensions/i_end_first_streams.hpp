#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/fwd.hpp>

#include <memory>

namespace foundation::storage::provider::extensions {

/// Second base of a provider that is asked for bytes by requests, some of them with the opening of
/// a file; found by a dynamic cast.
class FOUNDATION_EXPORT IEndFirstStreams {
  public:
    virtual ~IEndFirstStreams();
    /// As IProvider::openReadOnlyStream(), and at the start as well, for who looks at the end of
    /// the file first, as whoever reads a directory that stands there: the bytes that come with
    /// the opening are the last ones.
    virtual std::unique_ptr<ByteStream> openEndFirst(StorageIRI const& location) const = 0;
};

} // namespace foundation::storage::provider::extensions
