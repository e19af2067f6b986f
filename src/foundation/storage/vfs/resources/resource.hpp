#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>

namespace foundation::storage::vfs {

/// What has a location.
class FOUNDATION_EXPORT Resource {
  public:
    virtual AbsoluteIRI getLocation() const = 0;
    virtual ~Resource();

  protected:
    Resource() = default;
    Resource(Resource const&) = default;
    Resource& operator=(Resource const&) = default;
};

} // namespace foundation::storage::vfs
