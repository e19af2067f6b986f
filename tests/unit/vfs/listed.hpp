#pragma once

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace vfs_test {

using Names = std::vector<std::string>;

/// What a listing may be made of, for typed tests.
using Elements =
    testing::Types<foundation::storage::vfs::File, foundation::storage::vfs::Folder,
                   foundation::storage::vfs::FileOrFolder, foundation::storage::vfs::FileEntry,
                   foundation::storage::vfs::FolderEntry,
                   foundation::storage::vfs::FileOrFolderEntry,
                   foundation::storage::vfs::ListEntry>;

struct ElementName {
    template<class T>
    static std::string GetName(int) {
        namespace vfs = foundation::storage::vfs;
        if (std::is_same_v<T, vfs::File>) {
            return "File";
        }
        if (std::is_same_v<T, vfs::Folder>) {
            return "Folder";
        }
        if (std::is_same_v<T, vfs::FileOrFolder>) {
            return "FileOrFolder";
        }
        if (std::is_same_v<T, vfs::FileEntry>) {
            return "FileEntry";
        }
        if (std::is_same_v<T, vfs::FolderEntry>) {
            return "FolderEntry";
        }
        return std::is_same_v<T, vfs::ListEntry> ? "ListEntry" : "FileOrFolderEntry";
    }
};

template<class T>
std::string nameOf(T const& element) {
    if constexpr (requires { element.getName(); }) {
        return fl::i18n::toDisplayString(element.getName());
    } else {
        return fl::i18n::toDisplayString(getName(element));
    }
}

template<class T>
std::string locationOf(T const& element) {
    if constexpr (requires { element.getLocation(); }) {
        return fl::i18n::toDisplayString(element.getLocation().toString());
    } else if constexpr (requires { element.getFile(); }) {
        return fl::i18n::toDisplayString(element.getFile().getLocation().toString());
    } else if constexpr (requires { element.getFolder(); }) {
        return fl::i18n::toDisplayString(element.getFolder().getLocation().toString());
    } else {
        return fl::i18n::toDisplayString(getLocation(element).toString());
    }
}

/// What is left from `position` on, which is moved to the end.
template<class T>
Names namesFrom(foundation::storage::vfs::FolderListingIterator<T>& position,
                foundation::storage::vfs::FolderListing<T> const& listing) {
    Names names;
    for (; position != listing.end(); ++position) {
        names.push_back(nameOf(*position));
    }
    return names;
}

template<class T>
Names namesIn(foundation::storage::vfs::FolderListing<T> const& listing) {
    auto position = listing.begin();
    return namesFrom(position, listing);
}

template<class T>
Names locationsIn(foundation::storage::vfs::FolderListing<T> const& listing) {
    Names locations;
    for (T const& element : listing) {
        locations.push_back(locationOf(element));
    }
    return locations;
}

} // namespace vfs_test
