// Listings of real storages, by the storage's own means and by the system's.

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/feature_hider.hpp>
#include <foundation/storage/provider/wildcard.hpp>

#include "odd_tree.hpp"
#include "unit/providers/local/child_process.hpp"
#include "unit/vfs/fake_provider.hpp"
#include "unit/vfs/listed.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <ostream>
#include <set>
#include <string>

namespace {

using namespace listing_test;
using foundation::storage::conformance::decorate;
using foundation::storage::conformance::FeatureHider;
using provider::ExtendedFeature;
using provider::StorageIRI;
using vfs_test::codeOf;
using vfs_test::locationOf;
using vfs_test::OneProviderSystem;
namespace vfs = foundation::storage::vfs;
using vfs::ErrorCode;
using vfs::Folder;
using vfs::FolderListing;
using vfs::ustring;

bool isFile(vfs::File const&) {
    return true;
}
bool isFile(vfs::Folder const&) {
    return false;
}
bool isFile(vfs::FileEntry const&) {
    return true;
}
bool isFile(vfs::FolderEntry const&) {
    return false;
}
bool isFile(vfs::FileOrFolderEntry const& entry) {
    return entry.which() == 0;
}
bool isFile(vfs::ListEntry const& entry) {
    return entry.getFileOrFolder().which() == 0;
}

/// What a listing shows; each item once, and each folder before what is in it.
template<class T>
Kinds shown(FolderListing<T> const& listing) {
    Kinds kinds;
    for (T const& element : listing) {
        std::string const location = locationOf(element);
        EXPECT_TRUE(kinds.emplace(location, isFile(element)).second) << location << " twice";
        auto const inside = kinds.lower_bound(location + '/');
        EXPECT_FALSE(inside != kinds.end() && inside->first.starts_with(location + '/'))
            << location << " behind " << inside->first;
    }
    return kinds;
}

struct Operation {
    char const* name;
    bool files;
    bool folders;
    bool recursive;
    Kinds (*list)(Folder const&, ustring const&);
};

constexpr Operation operations[] = {
    {"listFiles", true, false, false,
     [](Folder const& f, ustring const& p) { return shown(f.listFiles(p)); }},
    {"listFolders", false, true, false,
     [](Folder const& f, ustring const& p) { return shown(f.listFolders(p)); }},
    {"listAll", true, true, false,
     [](Folder const& f, ustring const& p) { return shown(f.listAll(p)); }},
    {"listFileEntries", true, false, false,
     [](Folder const& f, ustring const& p) { return shown(f.listFileEntries(p)); }},
    {"listFolderEntries", false, true, false,
     [](Folder const& f, ustring const& p) { return shown(f.listFolderEntries(p)); }},
    {"listAllEntries", true, true, false,
     [](Folder const& f, ustring const& p) { return shown(f.listAllEntries(p)); }},
    {"listAllRecursive", true, true, true,
     [](Folder const& f, ustring const& p) { return shown(f.listAllRecursive(p)); }},
    {"listAllEntriesRecursive", true, true, true,
     [](Folder const& f, ustring const& p) { return shown(f.listAllEntriesRecursive(p)); }}};

char16_t const* const patterns[] = {
    u"",         u"*",   u"*.txt", u"*.TXT", u"?",    u"???", u"c*", u".*",           u"*.*", u"**",
    u"*\xDCFF*", u"*e*", u"*\n*",  u"%41",   u"*\\*", u"*?",  u"d",  u"no such name", u"*d/*"};

/// A storage, and what it offers to the system.
struct Offer {
    char const* name;
    std::unique_ptr<Place> (*make)();
    std::set<ExtendedFeature> hidden;
};
void PrintTo(Offer const& offer, std::ostream* out) {
    *out << offer.name;
}

class ListedStorage : public testing::TestWithParam<Offer> {
  protected:
    Folder root() const { return folder(place->root); }
    Folder folder(StorageIRI const& location) const {
        return Folder(vfs::AbsoluteIRI(location, true), reference);
    }
    StorageIRI at(char16_t const* name) const { return StorageIRI(place->root, name); }

    std::unique_ptr<Place> place = GetParam().make();
    std::shared_ptr<OneProviderSystem> system = std::make_shared<OneProviderSystem>(
        decorate<FeatureHider>(place->storage, GetParam().hidden));
    vfs::StorageSystemReference reference{std::weak_ptr<vfs::StorageSystem>(system)};
};

std::set<ExtendedFeature> const everything = FeatureHider::allFeatures();
std::set<ExtendedFeature> const filters{ExtendedFeature::FlatWildcardListing,
                                        ExtendedFeature::RecursiveWildcardListing};

INSTANTIATE_TEST_SUITE_P(All, ListedStorage,
                         testing::Values(Offer{"DiskByItself", onDisk, {}},
                                         Offer{"DiskWithoutFilters", onDisk, filters},
                                         Offer{"DiskWithNothing", onDisk, everything},
                                         Offer{"MemoryByItself", inMemory, {}},
                                         Offer{"MemoryWithoutFilters", inMemory, filters},
                                         Offer{"MemoryWithNothing", inMemory, everything}),
                         [](auto const& instance) { return instance.param.name; });

/// What an operation on the root ought to show of a tree.
Kinds expected(Kinds const& tree, StorageIRI const& root, Operation const& operation,
               ustring const& pattern) {
    Kinds kinds;
    for (auto const& [text, isAFile] : tree) {
        StorageIRI const location(fl::i18n::storageNameToUstring(text));
        if ((isAFile ? operation.files : operation.folders) &&
            (operation.recursive || location.getParent() == root) &&
            (pattern.empty() || provider::matchesWildcard(pattern, location.getName()))) {
            kinds.emplace(text, isAFile);
        }
    }
    return kinds;
}

TEST_P(ListedStorage, ShowsWhatIsThereWhateverTheNames) {
    Kinds const tree = makeOddTree(*place);
    for (Operation const& operation : operations) {
        for (char16_t const* const pattern : patterns) {
            EXPECT_EQ(operation.list(root(), pattern),
                      expected(tree, place->root, operation, pattern))
                << operation.name << " <" << fl::i18n::toDisplayString(pattern) << '>';
        }
    }
}

TEST_P(ListedStorage, ShowsTheOddNamesFlatToo) {
    Kinds const tree = makeOddTree(*place);
    for (char16_t const* const name : {u"files", u"folders", u"empty"}) {
        for (Operation const& operation : operations) {
            for (char16_t const* const pattern : patterns) {
                Kinds below;
                for (auto const& [text, isAFile] : tree) {
                    StorageIRI const location(fl::i18n::storageNameToUstring(text));
                    if (at(name).isAncestorOf(location)) {
                        below.emplace(text, isAFile);
                    }
                }
                EXPECT_EQ(operation.list(folder(at(name)), pattern),
                          expected(below, at(name), operation, pattern))
                    << operation.name << " <" << fl::i18n::toDisplayString(pattern) << '>';
            }
        }
    }
}

TEST_P(ListedStorage, EveryElementFindsItsItemAgain) {
    makeOddTree(*place);
    for (vfs::FileOrFolderEntry const& entry : root().listAllEntriesRecursive()) {
        StorageIRI const location = getLocation(entry).toStorageIRI();
        if (entry.which() == 1) {
            EXPECT_EQ(place->storage->exists(location), provider::ExistsResult::Folder) << location;
            EXPECT_NO_THROW(boost::get<vfs::FolderEntry>(entry).getAttributes()) << location;
        } else {
            EXPECT_EQ(place->storage->exists(location), provider::ExistsResult::File) << location;
        }
    }
}

TEST_P(ListedStorage, FollowsALinkToTheFolderItIsAskedToList) {
    makeOddTree(*place);
    Kinds const direct = shown(folder(at(u"folders")).listAll(u"c*"));
    Kinds const linked = shown(folder(at(u"to folder")).listAll(u"c*"));
    EXPECT_EQ(linked.size(), direct.size());
    EXPECT_EQ(
        linked.count(fl::i18n::toDisplayString(StorageIRI(at(u"to folder"), u"case").toString())),
        1U);
}

TEST_P(ListedStorage, RefusesAMissingFolderAndAFileAtOnce) {
    makeOddTree(*place);
    for (Operation const& operation : operations) {
        for (char16_t const* const pattern : {u"", u"*"}) {
            EXPECT_EQ(codeOf([&] { operation.list(folder(at(u"missing")), pattern); }),
                      ErrorCode::ResourceNotFound)
                << operation.name;
            EXPECT_EQ(codeOf([&] { operation.list(folder(at(u"dangling.txt")), pattern); }),
                      ErrorCode::ResourceNotFound)
                << operation.name;
            EXPECT_ANY_THROW(operation.list(folder(at(u"plain.txt")), pattern)) << operation.name;
        }
    }
}

TEST_P(ListedStorage, TraversalsSideBySideShowTheSame) {
    Kinds const tree = makeOddTree(*place);
    auto const all = root().listAllEntriesRecursive();
    auto one = all.begin();
    for (std::size_t i = 0; i < tree.size() / 2; ++i) {
        ++one;
    }
    auto two = one;
    Kinds rest;
    for (; one != all.end(); ++one) {
        rest.emplace(locationOf(*one), isFile(*one));
    }
    EXPECT_EQ(rest.size(), tree.size() - tree.size() / 2);
    Kinds again;
    for (; two != all.end(); ++two) {
        again.emplace(locationOf(*two), isFile(*two));
    }
    EXPECT_EQ(again, rest);
    EXPECT_EQ(shown(all), tree);
}

template<class T>
bool emptyByItsEnds(FolderListing<T> const& listing) {
    return listing.begin() == listing.end();
}

TEST_P(ListedStorage, EmptyFolderIsEmpty) {
    makeOddTree(*place);
    Folder const none = folder(at(u"empty"));
    EXPECT_TRUE(none.listAll().empty());
    EXPECT_TRUE(none.listAllEntries(u"*").empty());
    EXPECT_TRUE(none.listAllRecursive(u"*").empty());
    EXPECT_TRUE(emptyByItsEnds(none.listAllRecursive()));
    EXPECT_TRUE(emptyByItsEnds(none.listAllEntriesRecursive()));
    bool const walkedHere = GetParam().hidden.contains(ExtendedFeature::RecursiveListing);
    EXPECT_EQ(none.listAllRecursive().empty(), !walkedHere);
    EXPECT_EQ(none.listAllEntriesRecursive().empty(), !walkedHere);
}

TEST_P(ListedStorage, FolderThatGoesDuringTheWalkIsPassedOver) {
    for (char16_t const* const name : {u"a", u"b", u"c"}) {
        place->storage->createFolder(at(name));
        place->storage->createFile(StorageIRI(at(name), u"inside"));
    }
    auto const all = root().listAllEntriesRecursive();
    Kinds seen;
    bool removed = false;
    for (auto position = all.begin(); position != all.end(); ++position) {
        std::string const location = locationOf(*position);
        seen.emplace(location, isFile(*position));
        if (location == fl::i18n::toDisplayString(at(u"b").toString())) {
            place->storage->removeFile(StorageIRI(at(u"b"), u"inside"));
            place->storage->removeFolder(at(u"b"));
            removed = true;
        }
    }
    EXPECT_TRUE(removed);
    EXPECT_TRUE(
        seen.contains(fl::i18n::toDisplayString(StorageIRI(at(u"a"), u"inside").toString())));
    EXPECT_TRUE(
        seen.contains(fl::i18n::toDisplayString(StorageIRI(at(u"c"), u"inside").toString())));
}

/// The real disk denies access to an unprivileged user alone, so that a child process is one.
class DeniedOnDisk : public ListedStorage {};

INSTANTIATE_TEST_SUITE_P(All, DeniedOnDisk,
                         testing::Values(Offer{"WalkedByItself", onDisk, {}},
                                         Offer{"WalkedBySystem", onDisk, everything}),
                         [](auto const& instance) { return instance.param.name; });

TEST_P(DeniedOnDisk, FolderIsShownAndItsContentsAreNot) {
    Kinds tree;
    for (char16_t const* const name : {u"a", u"closed", u"z"}) {
        place->storage->createFolder(at(name));
        tree.emplace(fl::i18n::toDisplayString(at(name).toString()), false);
        StorageIRI const inside(at(name), u"inside");
        place->storage->createFile(inside);
        if (ustring(name) != u"closed") {
            tree.emplace(fl::i18n::toDisplayString(inside.toString()), true);
        }
    }
    std::filesystem::path const closed(
        fl::i18n::ustringToStorageName(provider::fromStorageIRI(at(u"closed"))));
    std::filesystem::permissions(closed, std::filesystem::perms::none);
    std::string const outcome = provider::local::test::inChild([&]() -> std::string {
        provider::local::test::becomeUnprivileged();
        if (shown(root().listAllEntriesRecursive()) != tree) {
            return "entries differ";
        }
        if (shown(root().listAllRecursive()) != tree) {
            return "names differ";
        }
        Folder const denied = folder(at(u"closed"));
        for (Operation const& operation : operations) {
            if (codeOf([&] { operation.list(denied, u""); }) != ErrorCode::PermissionDenied) {
                return operation.name;
            }
        }
        return "as expected";
    });
    std::filesystem::permissions(closed, std::filesystem::perms::owner_all);
    EXPECT_EQ(outcome, "as expected");
}

} // namespace
