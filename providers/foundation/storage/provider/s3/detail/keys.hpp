#pragma once

#include <foundation/storage/provider/storage_iri.hpp>

#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

/// Bytes that a key has at most.
inline constexpr std::size_t longestKey = 1024;

/// Where an item of a bucket stands among the keys.
struct ItemKey {
    /// Of the file; empty for the root.
    std::string file;

    bool isRoot() const noexcept { return file.empty(); }
    /// What the keys of everything in the folder begin with, and the key of its marker: the same
    /// with a slash behind it. Empty for the root.
    std::string folder() const { return isRoot() ? std::string() : file + '/'; }
    /// Whether there is room for the slash.
    bool canBeFolder() const noexcept { return file.size() < longestKey; }
    /// Of the folder that it lies in. REQUIRES: not the root.
    ItemKey parent() const;

    friend bool operator==(ItemKey const&, ItemKey const&) = default;
};

/// Throws provider::Exception, code InvalidLocation, where the location has a query, a fragment or
/// no path, or where there can be no such key: it is no UTF-8, or too long.
ItemKey itemKey(StorageIRI const& location);

/// Whether a path without a slash at either end can be the one of a location: UTF-8 without empty
/// segments, `.`, `..` and NUL.
bool isPath(std::string_view path) noexcept;

/// The location of a key below a folder, whose own keys begin with `folder`; that of the folder
/// where the key has none.
StorageIRI itemBelow(StorageIRI const& location, std::string_view folder, std::string_view key);

} // namespace foundation::storage::provider::s3::detail
