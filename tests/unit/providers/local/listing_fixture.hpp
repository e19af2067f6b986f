#pragma once

#include "listed_entries.hpp"
#include "local_fixture.hpp"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::local::test {

using Names = std::vector<std::string>;
using Listing = std::unique_ptr<IFolderEntryIterator> (IProvider::*)(
    StorageIRI const&, fl::i18n::ustring const&) const;

inline constexpr Listing flatListings[] = {
    &IProvider::listAll,     &IProvider::listAllNamesOnly,
    &IProvider::listFiles,   &IProvider::listFilesNamesOnly,
    &IProvider::listFolders, &IProvider::listFoldersNamesOnly};

/// Lists single folders.
class FlatListingTest : public LocalProviderTest {
  protected:
    explicit FlatListingTest(LocalOptions const& options = {}) : LocalProviderTest(options) {}

    Cursor list(Listing listing, std::string_view name = "",
                fl::i18n::ustring const& filter = {}) const;
    Cursor names(std::string_view name = "") const;

    /// Several chunks, of names as well as of attributes.
    static constexpr int many = 1200;
    static std::string nameOf(int number);
    /// A folder of that many files; their names, sorted.
    Names makeMany(std::string const& folder) const;
};

/// Lists trees.
class TreeListingTest : public LocalProviderTest {
  protected:
    explicit TreeListingTest(LocalOptions const& options = {}) : LocalProviderTest(options) {}

    Cursor names(std::string_view name = "", fl::i18n::ustring const& filter = {}) const;
    Cursor entries(std::string_view name = "", fl::i18n::ustring const& filter = {}) const;

    /// Some hundred entries with names that depend on `seed` alone, up to 40 levels deep.
    void makeTree(std::string const& folder, unsigned seed) const;
};

std::string describe(AttributeValues const& values);

/// The attributes of every entry by its name, empty where there are none.
std::map<std::string, std::string> attributesIn(Cursor const& cursor);

/// Whether every entry follows the folder that it is in, or what is in it.
bool isDepthFirst(Names const& order);

/// The path of an open folder.
std::string folderOf(unsigned long long descriptor);

} // namespace foundation::storage::provider::local::test
