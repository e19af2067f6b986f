#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/fwd.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <cstdint>
#include <optional>

namespace foundation::storage::provider::extensions {

/// What a folder is to get; what is empty stays as it is.
struct FolderAttributeChange {
    std::optional<std::uint32_t> mode; ///< permission bits, and those of chmod(2) beyond them
    std::optional<Timestamp> lastModified;
    std::optional<Timestamp> lastAccessed;
};

/// Second base of a provider whose folders can be given a mode, and times to the nanosecond, as the
/// copy of a tree needs them; found by a dynamic cast.
class FOUNDATION_EXPORT IFolderAttributes {
  public:
    virtual ~IFolderAttributes();
    /// Changes the folder itself, and nothing that a link leads to: code InvalidLocation for a link
    /// and for anything else that is no folder. A storage gives what it can, and no more: a set-id
    /// bit of a folder stays as the storage made it.
    virtual void setFolderAttributes(StorageIRI const& location,
                                     FolderAttributeChange const& change) = 0;
};

} // namespace foundation::storage::provider::extensions
