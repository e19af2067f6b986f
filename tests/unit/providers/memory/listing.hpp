#pragma once

#include "memory_store.hpp"

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace memory_test {

using CursorPtr = std::unique_ptr<IFolderEntryIterator>;
using Listing = CursorPtr (IProvider::*)(StorageIRI const&, ustring const&) const;

struct NamedListing {
    char const* name;
    Listing list;
    bool files;
    bool folders;
    bool attributes;
    bool recursive;
};

inline constexpr std::array<NamedListing, 8> listings{{
    {"listAll", &IProvider::listAll, true, true, true, false},
    {"listFiles", &IProvider::listFiles, true, false, true, false},
    {"listFolders", &IProvider::listFolders, false, true, true, false},
    {"listAllNamesOnly", &IProvider::listAllNamesOnly, true, true, false, false},
    {"listFilesNamesOnly", &IProvider::listFilesNamesOnly, true, false, false, false},
    {"listFoldersNamesOnly", &IProvider::listFoldersNamesOnly, false, true, false, false},
    {"listAllRecursive", &IProvider::listAllRecursive, true, true, true, true},
    {"listAllRecursiveNamesOnly", &IProvider::listAllRecursiveNamesOnly, true, true, false, true},
}};

inline CursorPtr listed(Store const& store, Listing list, StorageIRI const& location,
                        ustring const& pattern) {
    return (store.operator->()->*list)(location, pattern);
}

inline std::vector<ustring> restOf(IFolderEntryIterator& cursor) {
    std::vector<ustring> names;
    while (cursor.hasNext()) {
        cursor.advance();
        names.push_back(cursor.currentEntry().getName());
    }
    return names;
}

inline std::vector<ustring> restOf(CursorPtr const& cursor) {
    return restOf(*cursor);
}

inline CursorPtr clone(CursorPtr const& cursor) {
    return CursorPtr(cursor->cloneIterator());
}

/// The `index`-th name of many, in order.
inline ustring numbered(ustring const& prefix, std::size_t index) {
    std::string const digits = std::to_string(1'000'000 + index);
    return prefix + ustring(digits.begin() + 1, digits.end());
}

inline void createFiles(Store const& store, ustring const& folder, std::size_t count) {
    StorageIRI const base = at(folder);
    for (std::size_t i = 0; i < count; ++i) {
        store->createFile(StorageIRI(base, numbered(u"f", i)));
    }
}

inline void removeFiles(Store const& store, ustring const& folder, std::size_t count) {
    StorageIRI const base = at(folder);
    for (std::size_t i = 0; i < count; ++i) {
        store->removeFile(StorageIRI(base, numbered(u"f", i)));
    }
}

} // namespace memory_test
