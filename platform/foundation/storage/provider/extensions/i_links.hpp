#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>
#include <foundation/storage/provider/fwd.hpp>

namespace foundation::storage::provider::extensions {

/// Second base of a provider with symbolic links; found by a dynamic cast.
class FOUNDATION_EXPORT ILinks {
  public:
    virtual ~ILinks();
    /// The target as it was written, relative or absolute. Throws code InvalidLocation where the
    /// item is no link.
    virtual fl::i18n::ustring readLink(StorageIRI const& location) const = 0;
    /// Makes a link; what it leads to need not exist. Throws code ResourceAlreadyExists where
    /// anything is at the location.
    virtual void createLink(StorageIRI const& location, fl::i18n::ustring const& target) = 0;
};

} // namespace foundation::storage::provider::extensions
