#pragma once

#include <foundation/export.hpp>

namespace foundation::storage::provider::extensions {

/// Second base of a provider that keeps changes back; found by a dynamic cast.
class FOUNDATION_EXPORT IFlushableFilesystem {
  public:
    virtual ~IFlushableFilesystem();
    /// Writes pending state out.
    virtual void flushFilesystem() = 0;
};

} // namespace foundation::storage::provider::extensions
