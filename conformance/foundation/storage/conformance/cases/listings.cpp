// Listings of one folder: what they deliver.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <foundation/storage/provider/wildcard.hpp>

#include <algorithm>
#include <map>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using Kind = DeclaredItem::Kind;

ustring numbered(ustring const& stem, std::size_t number) {
    std::string digits = std::to_string(number);
    digits.insert(0, 6 - std::min<std::size_t>(digits.size(), 6), '0');
    return stem + ustring(digits.begin(), digits.end());
}

/// The folders of the content, the place itself among them, and what is in each.
std::map<ustring, std::vector<DeclaredItem>> childrenByFolder(Trial& t) {
    std::map<ustring, std::vector<DeclaredItem>> children{{{}, {}}};
    for (DeclaredItem const& item : t.content()) {
        std::size_t const slash = item.path.rfind(u'/');
        ustring const folder = slash == ustring::npos ? ustring() : item.path.substr(0, slash);
        ustring const name = slash == ustring::npos ? item.path : item.path.substr(slash + 1);
        children[folder].push_back({name, item.kind, item.bytes});
        if (item.kind == Kind::Folder) {
            children[item.path];
        }
    }
    return children;
}

constexpr Case cases[] = {
    {"EachEntryIsDeliveredOnce",
     [](Trial& t) {
         for (auto const& [folder, children] : childrenByFolder(t)) {
             for (NamedListing const& listing : flatListings) {
                 std::vector<ustring> wanted;
                 for (DeclaredItem const& child : children) {
                     if (child.kind != Kind::Folder ? listing.files : listing.folders) {
                         wanted.push_back(child.path);
                     }
                 }
                 std::sort(wanted.begin(), wanted.end());
                 t.expectEqual(std::string(listing.name) + " of " + textOf(folder),
                               t.names(folder, listing.list), wanted);
             }
         }
     },
     Ability::Listing},
    {"EachEntryIsOfItsKind",
     [](Trial& t) {
         for (auto const& [folder, children] : childrenByFolder(t)) {
             for (NamedListing const& listing : flatListings) {
                 for (FolderEntry const& entry : t.entries(listing.list, folder)) {
                     for (DeclaredItem const& child : children) {
                         if (child.path == entry.getName()) {
                             t.expectEqual(std::string(listing.name) + " says that " +
                                               textOf(child.path) + " is a file",
                                           entry.isFile(), child.kind != Kind::Folder);
                         }
                     }
                 }
             }
         }
     },
     Ability::Listing},
    {"ListingsOfNamesCarryNoAttributes",
     [](Trial& t) {
         for (auto const& [folder, children] : childrenByFolder(t)) {
             for (NamedListing const& listing : flatListings) {
                 for (FolderEntry const& entry : t.entries(listing.list, folder)) {
                     std::string const what =
                         std::string(listing.name) + " gives " + textOf(entry.getName());
                     t.expectEqual(what + " attributes of a file",
                                   entry.getFileAttributes().has_value(),
                                   listing.attributes && entry.isFile());
                     t.expectEqual(what + " attributes of a folder",
                                   entry.getFolderAttributes().has_value(),
                                   listing.attributes && !entry.isFile());
                 }
             }
         }
     },
     Ability::Listing},
    {"ListedSizesAreThoseOfTheContent",
     [](Trial& t) {
         for (auto const& [folder, children] : childrenByFolder(t)) {
             for (FolderEntry const& entry : t.entries(&IProvider::listFiles, folder)) {
                 auto const& attributes = entry.getFileAttributes();
                 for (DeclaredItem const& child : children) {
                     if (child.path == entry.getName() && child.kind == Kind::File && attributes &&
                         attributes->values().size && t.has(Reading)) {
                         t.expectEqual("the listed size of " + textOf(child.path),
                                       *attributes->values().size,
                                       std::uint64_t{child.bytes.size()});
                     }
                 }
             }
         }
     },
     Ability::Listing},
    {"AnEmptyFolderHasNoEntries",
     [](Trial& t) {
         t.makeFolder(u"folder");
         for (NamedListing const& listing : flatListings) {
             t.expectEqual(listing.name, t.names(u"folder", listing.list), {});
         }
     },
     Ability::Listing | FolderCreation},
    {"WhatIsMissingIsNotListed",
     [](Trial& t) {
         for (NamedListing const& listing : flatListings) {
             t.expectRefused(
                 std::string(listing.name) + " of what is missing",
                 [&] { (t.provider().*listing.list)(t.at(u"not here"), {}); },
                 ErrorCode::ResourceNotFound, t.at(u"not here"));
             StorageIRI const below = t.at(u"not here/nor below");
             t.expectNotFoundOnTheWay(
                 std::string(listing.name) + " below what is missing",
                 [&] { (t.provider().*listing.list)(below, {}); }, below);
         }
     },
     Ability::Listing},
    {"AFileIsNotListed",
     [](Trial& t) {
         for (DeclaredItem const& item : std::vector(t.content())) {
             for (NamedListing const& listing : flatListings) {
                 if (item.kind == Kind::File) {
                     t.expectRefused(
                         std::string(listing.name) + " of the file " + textOf(item.path),
                         [&] { (t.provider().*listing.list)(t.at(item.path), {}); },
                         ErrorCode::ResourceNotFound, t.at(item.path));
                 }
             }
         }
     },
     Ability::Listing},
    {"FoldersOfAnySizeAreListedCompletely",
     [](Trial& t) {
         // Sizes at which the chunks of a listing may end.
         std::vector<ustring> wanted;
         for (std::size_t const size : {1U, 2U, 63U, 64U, 65U, 127U, 128U, 129U, 255U, 256U, 257U,
                                        511U, 512U, 513U, 1000U, 1001U, 1025U, 2049U}) {
             while (wanted.size() < size) {
                 wanted.push_back(numbered(u"file ", wanted.size()));
                 t.makeFile(wanted.back());
             }
             t.expectEqual("the names in a folder of " + textOf(static_cast<unsigned long>(size)),
                           t.names({}), wanted);
         }
         t.expectEqual("listFoldersNamesOnly of files alone",
                       t.names({}, &IProvider::listFoldersNamesOnly), {});
     },
     Ability::Listing | FileCreation},
    {"TheFewFoldersAmongManyFilesAreFound",
     [](Trial& t) {
         for (std::size_t number = 0; number < 600; ++number) {
             t.makeFile(numbered(u"file ", number));
         }
         t.makeFolder(u"a");
         t.makeFolder(u"file 000300 folder");
         t.makeFolder(u"z");
         t.expectEqual("listFolders", t.names({}, &IProvider::listFolders),
                       {u"a", u"file 000300 folder", u"z"});
     },
     Ability::Listing | FileCreation | FolderCreation},
    {"WhatIsBelowIsNotListed",
     [](Trial& t) {
         t.makeFolder(u"folder");
         t.makeFolder(u"folder/inner");
         t.makeFile(u"folder/inner/file");
         t.expectEqual("the names of the place", t.names({}), {u"folder"});
         t.expectEqual("the names in the folder", t.names(u"folder"), {u"inner"});
     },
     Ability::Listing | FileCreation | FolderCreation},
    {"ChangesAreSeenByTheNextListing",
     [](Trial& t) {
         t.makeFile(u"one");
         t.expectEqual("the names with one file", t.names({}), {u"one"});
         t.makeFile(u"two");
         t.expectEqual("the names with two files", t.names({}), {u"one", u"two"});
         t.provider().removeFile(t.at(u"one"));
         t.expectEqual("the names behind a removal", t.names({}), {u"two"});
     },
     Ability::Listing | FileCreation | FileRemoval},
    {"AttributesAreThoseOfTheItem",
     [](Trial& t) {
         for (auto const& [folder, children] : childrenByFolder(t)) {
             for (FolderEntry const& entry : t.entries(&IProvider::listAll, folder)) {
                 bool const isLink =
                     std::any_of(children.begin(), children.end(), [&](DeclaredItem const& child) {
                         return child.path == entry.getName() && child.kind == Kind::Link;
                     });
                 if (isLink) {
                     continue; // asked for, it has those of what it leads to
                 }
                 StorageIRI const location(t.at(folder), entry.getName());
                 auto const expectSame = [&](AttributeValues const& listed,
                                             AttributeValues const& asked) {
                     std::string const what = " of " + textOf(entry.getName()) + " as listed";
                     t.expectEqual("lastModified" + what, listed.lastModified, asked.lastModified);
                     t.expectEqual("writable" + what, listed.writable, asked.writable);
                     t.expectEqual("mode" + what, listed.mode, asked.mode);
                     if (entry.isFile()) {
                         t.expectEqual("size" + what, listed.size, asked.size);
                     }
                 };
                 if (entry.getFileAttributes() && t.has(Ability::FileAttributes)) {
                     expectSame(entry.getFileAttributes()->values(),
                                t.provider().getFileAttributes(location).values());
                 }
                 if (entry.getFolderAttributes() && t.has(Ability::FolderAttributes)) {
                     expectSame(entry.getFolderAttributes()->values(),
                                t.provider().getFolderAttributes(location).values());
                 }
             }
         }
     },
     Ability::Listing},
    {"AReadOnlyFileIsListedAsThat",
     [](Trial& t) {
         t.makeFile(u"closed");
         t.makeFile(u"open");
         t.makeReadOnly(u"closed");
         for (FolderEntry const& entry : t.entries(&IProvider::listAll, {})) {
             t.expect(entry.getFileAttributes() &&
                          entry.getFileAttributes()->isWritable() == (entry.getName() == u"open"),
                      "the listing is wrong about whether " + textOf(entry.getName()) +
                          " is writable");
         }
     },
     Ability::Listing | FileCreation | ReadOnlyItems},
    {"PatternsAreMatchedAsEverywhere",
     [](Trial& t) {
         std::vector<ustring> names{u"a",  u"ab",  u"abc",    u"b",       u"ba",
                                    u".a", u"a.b", u"a.b.c",  u"A",       u"a b",
                                    u"*a", u"a?",  u"\u00e4", u"a\u00e4", u"[a]"};
         if (!t.has(FileCreation) || !t.has(FolderCreation)) {
             t.content();
             names.clear();
         }
         for (std::size_t i = 0; i < names.size(); ++i) {
             i % 3 == 2 ? t.makeFolder(names[i]) : t.makeFile(names[i]);
         }
         for (ustring const pattern :
              {u"*",       u"?",       u"??",  u"a",    u"a*", u"*a",  u"*a*", u"a**", u"?a",
               u"a?",      u"*.b",     u"*.*", u"a.*",  u"A",  u"[a]", u"*?",  u"?*",  u"\u00e4",
               u"*\u00e4", u"nothing", u".*",  u"\\*a", u"**", u"***", u"a*c"}) {
             for (NamedListing const& listing : flatListings) {
                 std::vector<ustring> wanted = t.names({}, listing.list);
                 std::erase_if(
                     wanted, [&](ustring const& name) { return !matchesWildcard(pattern, name); });
                 t.expectEqual(std::string(listing.name) + " with the pattern " + textOf(pattern),
                               t.names({}, listing.list, pattern), wanted);
             }
         }
     },
     Ability::Listing | FlatWildcards},
    {"ThePatternOfAMissingFolderDoesNotMatter",
     [](Trial& t) {
         for (NamedListing const& listing : flatListings) {
             t.expectRefused(
                 std::string(listing.name) + " of what is missing, with a pattern",
                 [&] { (t.provider().*listing.list)(t.at(u"not here"), u"*"); },
                 ErrorCode::ResourceNotFound, t.at(u"not here"));
         }
     },
     Ability::Listing | FlatWildcards},
};

} // namespace

Family listingFamily() {
    return {"Listings", cases};
}

} // namespace foundation::storage::conformance::detail
