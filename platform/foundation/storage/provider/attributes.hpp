#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace foundation::storage::provider {

/// What a storage knows of an item; what it does not know is empty.
struct AttributeValues {
    Timestamp lastModified;
    std::optional<Timestamp> lastAccessed;
    std::optional<Timestamp> created;
    std::optional<std::uint64_t> size; ///< in bytes
    std::optional<std::uint32_t> mode; ///< permission bits as chmod(2) takes them
    bool writable = false;             ///< the owner's write bit, or what the storage has instead
};

/// Attributes of a file. A plain value.
class FOUNDATION_EXPORT FileAttributes {
  public:
    explicit FileAttributes(AttributeValues const& values) : values_(values) {}

    boost::posix_time::ptime getLastModified() const { return toPtime(values_.lastModified); }
    bool isWritable() const noexcept { return values_.writable; }
    AttributeValues const& values() const noexcept { return values_; }

  private:
    AttributeValues values_;
};

/// Attributes of a folder. A plain value, and a type of its own: the two are not interchangeable.
class FOUNDATION_EXPORT FolderAttributes {
  public:
    explicit FolderAttributes(AttributeValues const& values) : values_(values) {}

    boost::posix_time::ptime getLastModified() const { return toPtime(values_.lastModified); }
    bool isWritable() const noexcept { return values_.writable; }
    AttributeValues const& values() const noexcept { return values_; }

  private:
    AttributeValues values_;
};

/// Attributes beyond those, by namespaced key: `posix.mode`, `user.comment`, `s3.etag`. Values are
/// the storage's own bytes, text where the key says so.
using ExtendedAttributes = std::map<std::string, std::string>;

} // namespace foundation::storage::provider
