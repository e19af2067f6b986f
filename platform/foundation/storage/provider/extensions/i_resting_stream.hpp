#pragma once

#include <foundation/export.hpp>

namespace foundation::storage::provider::extensions {

/// Second base of a stream for reading that may be kept for long while nobody reads it, or reads
/// from one that is; found by a dynamic cast.
class FOUNDATION_EXPORT IRestingStream {
  public:
    virtual ~IRestingStream();
    /// Of what was asked for ahead, keeps no more than a mebibyte or so, as nobody may read on for
    /// long; whoever does goes on as before. REQUIRES: it is not closed.
    virtual void rest() noexcept = 0;
};

} // namespace foundation::storage::provider::extensions
