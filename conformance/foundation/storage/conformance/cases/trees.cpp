// Listings of a whole tree.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <foundation/storage/provider/wildcard.hpp>

#include <algorithm>
#include <set>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using Kind = DeclaredItem::Kind;
using Names = std::vector<ustring>;

constexpr AbilitySet forTrees = Ability::RecursiveListing | FileCreation | FolderCreation;

ustring digitsOf(std::size_t number) {
    std::string const digits = std::to_string(number);
    return {digits.begin(), digits.end()};
}

/// The entries in the order in which they come.
std::vector<FolderEntry> inOrder(Trial& t, ListingCall listing, ustring const& path,
                                 ustring const& filter = {}) {
    auto const cursor = (t.provider().*listing)(t.at(path), filter);
    std::vector<FolderEntry> entries;
    while (cursor->hasNext()) {
        cursor->advance();
        entries.push_back(cursor->currentEntry());
        if (entries.size() > 100'000) {
            t.abandon("a listing of a tree does not end");
        }
    }
    return entries;
}

ustring folderOf(ustring const& path) {
    std::size_t const slash = path.rfind(u'/');
    return slash == ustring::npos ? ustring() : path.substr(0, slash);
}

/// Folders of none to five files.
void makeSomeFolders(Trial& t) {
    for (std::size_t folder = 0; folder < 6; ++folder) {
        ustring const path = u"folder " + digitsOf(folder);
        t.makeFolder(path);
        t.makeFolder(path + u"/inner");
        for (std::size_t file = 0; file < folder; ++file) {
            t.makeFile(path + u"/inner/" + digitsOf(file));
        }
    }
}

constexpr Case cases[] = {
    {"EachItemIsDeliveredOnceByItsPath",
     [](Trial& t) {
         Names wanted;
         for (DeclaredItem const& item : t.content()) {
             wanted.push_back(item.path);
         }
         std::sort(wanted.begin(), wanted.end());
         for (NamedListing const& listing : treeListings) {
             t.expectEqual(listing.name, t.names({}, listing.list), wanted);
         }
     },
     Ability::RecursiveListing},
    {"EachItemIsOfItsKind",
     [](Trial& t) {
         for (NamedListing const& listing : treeListings) {
             for (FolderEntry const& entry : t.entries(listing.list, {})) {
                 for (DeclaredItem const& item : t.content()) {
                     if (item.path == entry.getName()) {
                         t.expectEqual(std::string(listing.name) + " says that " +
                                           textOf(item.path) + " is a file",
                                       entry.isFile(), item.kind != Kind::Folder);
                     }
                 }
             }
         }
     },
     Ability::RecursiveListing},
    {"OnlyTheListingOfNamesIsWithoutAttributes",
     [](Trial& t) {
         t.content();
         for (NamedListing const& listing : treeListings) {
             for (FolderEntry const& entry : t.entries(listing.list, {})) {
                 t.expectEqual(std::string(listing.name) + " gives " + textOf(entry.getName()) +
                                   " attributes",
                               entry.isFile() ? entry.getFileAttributes().has_value()
                                              : entry.getFolderAttributes().has_value(),
                               listing.attributes);
             }
         }
     },
     Ability::RecursiveListing},
    {"AFolderComesBeforeItsContents",
     [](Trial& t) {
         t.content();
         for (NamedListing const& listing : treeListings) {
             std::set<ustring> seen{{}};
             for (FolderEntry const& entry : inOrder(t, listing.list, {})) {
                 t.expect(seen.count(folderOf(entry.getName())) == 1,
                          std::string(listing.name) + ": " + textOf(entry.getName()) +
                              " comes before its folder");
                 seen.insert(entry.getName());
             }
         }
     },
     Ability::RecursiveListing},
    {"OneFolderIsFinishedBeforeTheNext",
     [](Trial& t) {
         for (ustring const folder : {u"a", u"b", u"a/c", u"a/d", u"b/e", u"a b"}) {
             t.makeFolder(folder);
             for (ustring const file : {u"/1", u"/2", u"/z"}) {
                 t.makeFile(folder + file);
             }
         }
         for (NamedListing const& listing : treeListings) {
             // Depth first: behind an item of another branch none of a folder's comes any more.
             std::set<ustring> left;
             ustring open;
             for (FolderEntry const& entry : inOrder(t, listing.list, {})) {
                 ustring const folder = folderOf(entry.getName());
                 t.expect(left.count(folder) == 0, std::string(listing.name) + ": " +
                                                       textOf(entry.getName()) +
                                                       " comes when its folder was left");
                 for (ustring up = open; up != folder && !(folder + u"/").starts_with(up + u"/");
                      up = folderOf(up)) {
                     left.insert(up);
                     if (up.empty()) {
                         break;
                     }
                 }
                 open = entry.isFile() ? folder : entry.getName();
             }
         }
     },
     forTrees},
    {"AListedFolderIsTheBaseOfThePaths",
     [](Trial& t) {
         t.makeFolder(u"outer");
         t.makeFolder(u"outer/inner");
         t.makeFile(u"outer/inner/file");
         t.makeFile(u"beside");
         for (NamedListing const& listing : treeListings) {
             t.expectEqual(listing.name, t.names(u"outer", listing.list),
                           {u"inner", u"inner/file"});
         }
     },
     forTrees},
    {"PathsLeadBackToTheirItems",
     [](Trial& t) {
         t.makeFolder(u"100%");
         t.makeFolder(u"100%/a!");
         t.makeFile(u"100%/a!/b?c#d");
         t.makeFile(u"100%/a!/ e");
         StorageItem const place = t.item({});
         for (FolderEntry const& entry : t.entries(&IProvider::listAllRecursiveNamesOnly, {})) {
             StorageItem const item(place, entry.getName());
             t.expect(entry.isFile() ? item.fileExists() : item.folderExists(),
                      "the listed " + textOf(entry.getName()) + " is not there");
         }
         t.expectEqual("the paths", t.names({}, &IProvider::listAllRecursiveNamesOnly),
                       {u"100%", u"100%/a!", u"100%/a!/ e", u"100%/a!/b?c#d"});
     },
     forTrees},
    {"WhatIsNoFolderIsNotListed",
     [](Trial& t) {
         t.makeFile(u"file");
         for (NamedListing const& listing : treeListings) {
             for (ustring const path : {u"missing", u"file"}) {
                 t.expectRefused(
                     std::string(listing.name) + " of " + textOf(path),
                     [&] { (t.provider().*listing.list)(t.at(path), {}); },
                     ErrorCode::ResourceNotFound, t.at(path));
             }
         }
     },
     forTrees},
    {"AnEmptyFolderHasNoEntries",
     [](Trial& t) {
         t.makeFolder(u"folder");
         for (NamedListing const& listing : treeListings) {
             t.expectEqual(listing.name, t.names(u"folder", listing.list), {});
         }
     },
     forTrees},
    {"AHundredLevelsAreListed",
     [](Trial& t) {
         ustring path;
         for (int level = 0; level < 100; ++level) {
             path += path.empty() ? u"level" : u"/level";
             t.makeFolder(path);
             t.makeFile(path + u"/file");
         }
         for (NamedListing const& listing : treeListings) {
             auto const entries = inOrder(t, listing.list, {});
             t.expectEqual(std::string(listing.name) + ", the number of entries",
                           static_cast<unsigned long>(entries.size()), 200UL);
             t.expect(std::any_of(entries.begin(), entries.end(),
                                  [&](FolderEntry const& entry) {
                                      return entry.getName() == path + u"/file";
                                  }),
                      std::string(listing.name) + " does not reach the deepest file");
         }
     },
     forTrees},
    {"ManyFoldersOfManyFilesAreListed",
     [](Trial& t) {
         Names wanted;
         for (std::size_t folder = 0; folder < 12; ++folder) {
             wanted.push_back(u"folder " + digitsOf(folder));
             t.makeFolder(wanted.back());
             ustring const base = wanted.back() + u"/";
             for (std::size_t file = 0; file < folder * 25; ++file) {
                 wanted.push_back(base + digitsOf(file));
                 t.makeFile(wanted.back());
             }
         }
         std::sort(wanted.begin(), wanted.end());
         for (NamedListing const& listing : treeListings) {
             t.expectEqual(listing.name, t.names({}, listing.list), wanted);
         }
     },
     forTrees},
    {"ClonesAtEveryPositionGoOnByThemselves",
     [](Trial& t) {
         if (t.has(FileCreation) && t.has(FolderCreation)) {
             makeSomeFolders(t);
         } else {
             t.content();
         }
         for (NamedListing const& listing : treeListings) {
             std::vector<FolderEntry> const all = inOrder(t, listing.list, {});
             auto const cursor = (t.provider().*listing.list)(t.at({}), {});
             std::vector<std::unique_ptr<IFolderEntryIterator>> clones;
             for (std::size_t i = 0; i <= all.size(); ++i) {
                 clones.emplace_back(cursor->cloneIterator());
                 if (i < all.size()) {
                     cursor->advance();
                 }
             }
             for (std::size_t i = 0; i < clones.size(); ++i) {
                 Names rest;
                 while (clones[i]->hasNext() && rest.size() <= all.size()) {
                     clones[i]->advance();
                     rest.push_back(clones[i]->currentEntry().getName());
                 }
                 Names wanted;
                 for (std::size_t k = i; k < all.size(); ++k) {
                     wanted.push_back(all[k].getName());
                 }
                 t.expectEqual(std::string(listing.name) + ", the rest of the clone made at " +
                                   textOf(static_cast<unsigned long>(i)),
                               rest, wanted);
             }
         }
     },
     Ability::RecursiveListing},
    {"APatternDecidesWhatIsShownAndNotWhatIsEntered",
     [](Trial& t) {
         if (t.has(FileCreation) && t.has(FolderCreation)) {
             t.makeFolder(u"outer");
             t.makeFolder(u"outer/a");
             t.makeFile(u"outer/a/ab.txt");
             t.makeFile(u"outer/b.txt");
             t.makeFile(u"a.txt");
         } else {
             t.content();
         }
         for (NamedListing const& listing : treeListings) {
             for (ustring const pattern :
                  {u"*", u"a*", u"*.txt", u"a", u"?", u"outer", u"outer*", u"*/*", u"nothing"}) {
                 Names wanted = t.names({}, listing.list);
                 std::erase_if(wanted, [&](ustring const& path) {
                     ustring const name = path.substr(path.rfind(u'/') + 1);
                     return !matchesWildcard(pattern, name);
                 });
                 t.expectEqual(std::string(listing.name) + " with the pattern " + textOf(pattern),
                               t.names({}, listing.list, pattern), wanted);
             }
         }
     },
     Ability::RecursiveListing | RecursiveWildcards},
    {"AFolderThatVanishesBelowIsPassedOver",
     [](Trial& t) {
         for (ustring const folder : {u"a", u"b", u"c"}) {
             t.makeFolder(folder);
             t.makeFile(folder + u"/file");
         }
         for (NamedListing const& listing : treeListings) {
             auto const cursor = (t.provider().*listing.list)(t.at({}), {});
             cursor->advance();
             ustring const first = cursor->currentEntry().getName();
             // The others go before they are entered.
             Names staying{first, first + u"/file"};
             for (ustring const folder : {u"a", u"b", u"c"}) {
                 if (folder != first) {
                     t.provider().removeFile(t.at(folder + u"/file"));
                     t.provider().removeFolder(t.at(folder));
                 }
             }
             Names found{first};
             while (cursor->hasNext()) {
                 cursor->advance();
                 found.push_back(cursor->currentEntry().getName());
             }
             for (ustring const& name : staying) {
                 t.expect(std::count(found.begin(), found.end(), name) == 1,
                          std::string(listing.name) + ": " + textOf(name) +
                              " is not delivered exactly once");
             }
             for (ustring const folder : {u"a", u"b", u"c"}) {
                 if (folder != first) {
                     t.makeFolder(folder);
                     t.makeFile(folder + u"/file");
                 }
             }
         }
     },
     forTrees | FileRemoval | FolderRemoval},
};

} // namespace

Family treeFamily() {
    return {"Trees", cases};
}

} // namespace foundation::storage::conformance::detail
