#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/events/kind.hpp>
#include <foundation/storage/vfs/resources/file_or_folder.hpp>

#include <boost/property_tree/ptree.hpp>

namespace foundation::storage::vfs {

using foundation::storage::events::Kind;

/// What happened, and a handle on what it happened to. A value class.
class FOUNDATION_EXPORT EventData {
  public:
    EventData(Kind const& kind, FileOrFolder const& resource);

    Kind getKind() const;
    FileOrFolder getFileOrFolder() const;

  private:
    Kind kind_;
    FileOrFolder resource_;
};

/// What else the provider says of a change, by keys of its own. A value class.
class FOUNDATION_EXPORT ExtendedEventData {
  public:
    ExtendedEventData();
    explicit ExtendedEventData(boost::property_tree::ptree data);

    /// Whether there are no keys. A value at the root itself does not count.
    bool empty() const;
    boost::property_tree::ptree getData() const;
    /// What stands at `key`; a dot in it goes a level down, and the empty key is the whole. Throws
    /// std::runtime_error that ends with the key where there is nothing, and std::range_error for a
    /// key that is not UTF-16.
    boost::property_tree::ptree getData(ustring const& key) const;

  private:
    boost::property_tree::ptree data_;
};

} // namespace foundation::storage::vfs
