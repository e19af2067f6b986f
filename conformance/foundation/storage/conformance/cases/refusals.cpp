// What is declared unsupported is refused with UnsupportedOperation; what changes the storage also
// with ReadOnlyProvider.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <foundation/storage/provider/extensions/i_links.hpp>

#include <boost/property_tree/ptree.hpp>

#include <algorithm>

namespace foundation::storage::conformance::detail {

namespace {

using Kind = DeclaredItem::Kind;

/// The path of something of this kind that is there; of nothing where there is none.
ustring some(Trial& t, Kind kind) {
    auto const& content = t.content();
    auto const found = std::find_if(content.begin(), content.end(),
                                    [&](DeclaredItem const& item) { return item.kind == kind; });
    return found != content.end() ? found->path : ustring(u"not here");
}
StorageIRI someFile(Trial& t) {
    return t.at(some(t, Kind::File));
}
/// The place itself where there is no other folder.
StorageIRI someFolder(Trial& t) {
    ustring const path = some(t, Kind::Folder);
    return path == u"not here" ? t.at({}) : t.at(path);
}

void expectUnsupported(Trial& t, Ability ability, std::string_view what, Call const& call) {
    try {
        call();
    } catch (Exception const& e) {
        bool const readOnly =
            changingAbilities.contains(ability) && e.getErrorCode() == ErrorCode::ReadOnlyProvider;
        t.expect(readOnly || e.getErrorCode() == ErrorCode::UnsupportedOperation,
                 std::string(what) + " is declared unsupported, and gave " +
                     textOfCurrentException() + " instead of UnsupportedOperation");
        return;
    } catch (...) {
        t.remark(std::string(what) + " is declared unsupported, and gave " +
                 textOfCurrentException() + " instead of UnsupportedOperation");
        return;
    }
    t.remark(std::string(what) + " works, though it is declared unsupported");
}

void expectNoEvents(Trial& t, std::string_view what, Call const& call) {
    try {
        call();
        t.remark(std::string(what) + " works, though it is declared unsupported");
    } catch (ChangeEventsNotSupportedException const&) {
    } catch (...) {
        t.remark(std::string(what) + " is declared unsupported, and gave " +
                 textOfCurrentException() + " instead of ChangeEventsNotSupportedException");
    }
}

/// Whether a listing with a filter that nothing matches is shorter than one without.
bool filters(Trial& t, ListingCall listing) {
    return !t.names({}, listing).empty() && t.names({}, listing, u"nothing has this name").empty();
}

constexpr Case cases[] = {
    {"FileAttributes",
     [](Trial& t) {
         expectUnsupported(t, Ability::FileAttributes, "getFileAttributes",
                           [&] { t.provider().getFileAttributes(someFile(t)); });
     },
     {},
     Ability::FileAttributes},
    {"FolderAttributes",
     [](Trial& t) {
         expectUnsupported(t, Ability::FolderAttributes, "getFolderAttributes",
                           [&] { t.provider().getFolderAttributes(someFolder(t)); });
     },
     {},
     Ability::FolderAttributes},
    {"ExtendedAttributes",
     [](Trial& t) {
         expectUnsupported(t, Ability::ExtendedAttributes, "getExtendedAttributes",
                           [&] { t.provider().getExtendedAttributes(someFile(t)); });
     },
     {},
     Ability::ExtendedAttributes},
    {"Times",
     [](Trial& t) {
         expectUnsupported(t, Ability::Times, "setLastModified", [&] {
             t.provider().setLastModified(someFile(t), toPtime({1'000'000'000, 0}));
         });
     },
     {},
     Ability::Times},
    {"ReadOnlyItems",
     [](Trial& t) {
         for (bool const writable : {false, true}) {
             expectUnsupported(t, Ability::ReadOnlyItems, "setWritable",
                               [&] { t.provider().setWritable(someFile(t), writable); });
         }
     },
     {},
     Ability::ReadOnlyItems},
    {"FileCreation",
     [](Trial& t) {
         expectUnsupported(t, Ability::FileCreation, "createFile",
                           [&] { t.provider().createFile(t.at(u"new")); });
         t.expectGone(u"new");
     },
     {},
     Ability::FileCreation},
    {"FolderCreation",
     [](Trial& t) {
         expectUnsupported(t, Ability::FolderCreation, "createFolder",
                           [&] { t.provider().createFolder(t.at(u"new")); });
         t.expectGone(u"new");
     },
     {},
     Ability::FolderCreation},
    {"FolderChainCreation",
     [](Trial& t) {
         expectUnsupported(t, Ability::FolderChainCreation, "createFolderRecursive",
                           [&] { t.provider().createFolderRecursive(t.at(u"new/newer")); });
         t.expectGone(u"new");
     },
     {},
     Ability::FolderChainCreation},
    {"FileRemoval",
     [](Trial& t) {
         ustring const path = some(t, Kind::File);
         ExistsResult const before = t.exists(path);
         expectUnsupported(t, Ability::FileRemoval, "removeFile",
                           [&] { t.provider().removeFile(t.at(path)); });
         t.expectEqual("exists of the file behind the refusal", t.exists(path), before);
     },
     {},
     Ability::FileRemoval},
    {"FolderRemoval",
     [](Trial& t) {
         expectUnsupported(t, Ability::FolderRemoval, "removeFolder",
                           [&] { t.provider().removeFolder(t.at(some(t, Kind::Folder))); });
     },
     {},
     Ability::FolderRemoval},
    {"TreeRemoval",
     [](Trial& t) {
         ustring const path = some(t, Kind::Folder);
         ExistsResult const before = t.exists(path);
         expectUnsupported(t, Ability::TreeRemoval, "removeFolderRecursively",
                           [&] { t.provider().removeFolderRecursively(t.at(path)); });
         t.expectEqual("exists of the folder behind the refusal", t.exists(path), before);
     },
     {},
     Ability::TreeRemoval},
    {"FileCopies",
     [](Trial& t) {
         expectUnsupported(t, Ability::FileCopies, "copyFile",
                           [&] { t.copy(some(t, Kind::File), u"copy"); });
         t.expectGone(u"copy");
     },
     {},
     Ability::FileCopies},
    {"FileMoves",
     [](Trial& t) {
         ustring const path = some(t, Kind::File);
         ExistsResult const before = t.exists(path);
         expectUnsupported(t, Ability::FileMoves, "moveFile", [&] {
             t.provider().moveFile(t.at(path), t.at(u"moved"), ReplacementPolicy::FailIfExists);
         });
         t.expectEqual("exists of the file behind the refusal", t.exists(path), before);
         t.expectGone(u"moved");
     },
     {},
     Ability::FileMoves},
    {"FolderMoves",
     [](Trial& t) {
         ustring const path = some(t, Kind::Folder);
         ExistsResult const before = t.exists(path);
         expectUnsupported(t, Ability::FolderMoves, "moveFolder", [&] {
             t.provider().moveFolder(t.at(path), t.at(u"moved"), ReplacementPolicy::FailIfExists);
         });
         t.expectEqual("exists of the folder behind the refusal", t.exists(path), before);
         t.expectGone(u"moved");
     },
     {},
     Ability::FolderMoves},
    {"FolderMovesOntoThemselves",
     [](Trial& t) {
         // UnsupportedOperation would be answered with a copy and the removal of the source.
         StorageIRI const folder = someFolder(t);
         try {
             t.provider().moveFolder(folder, folder, ReplacementPolicy::ReplaceExisting);
             t.remark("moveFolder onto itself works, though it is declared unsupported");
         } catch (Exception const& e) {
             t.expect(e.getErrorCode() == ErrorCode::InvalidLocation ||
                          e.getErrorCode() == ErrorCode::ReadOnlyProvider,
                      "moveFolder onto itself gave " + textOfCurrentException() +
                          " instead of InvalidLocation");
         }
     },
     {},
     Ability::FolderMoves},
    {"Reading",
     [](Trial& t) {
         expectUnsupported(t, Ability::Reading, "openReadOnlyStream",
                           [&] { t.provider().openReadOnlyStream(someFile(t)); });
     },
     {},
     Ability::Reading},
    {"Writing",
     [](Trial& t) {
         for (auto const access : {ByteStreamAccess::WriteOnly, ByteStreamAccess::ReadWrite}) {
             expectUnsupported(t, Ability::Writing, "openStream", [&] {
                 t.provider().openStream(someFile(t),
                                         {access, ByteStreamCreation::OpenExisting, 1, 1});
             });
             expectUnsupported(t, Ability::Writing, "openStream of a new file", [&] {
                 t.provider().openStream(t.at(u"new"),
                                         {access, ByteStreamCreation::OpenOrCreate, 0, 1});
             });
         }
         t.expectGone(u"new");
     },
     {},
     Ability::Writing},
    {"Listing",
     [](Trial& t) {
         for (NamedListing const& listing : flatListings) {
             expectUnsupported(t, Ability::Listing, listing.name,
                               [&] { (t.provider().*listing.list)(t.at({}), {}); });
         }
     },
     {},
     Ability::Listing},
    {"RecursiveListing",
     [](Trial& t) {
         for (NamedListing const& listing : treeListings) {
             expectUnsupported(t, Ability::RecursiveListing, listing.name,
                               [&] { (t.provider().*listing.list)(t.at({}), {}); });
         }
     },
     {},
     Ability::RecursiveListing},
    {"FlatWildcards",
     [](Trial& t) {
         t.content();
         for (NamedListing const& listing : flatListings) {
             t.expect(!filters(t, listing.list),
                      std::string(listing.name) +
                          " filters, though FlatWildcards is declared unsupported");
         }
     },
     Ability::Listing, Ability::FlatWildcards},
    {"RecursiveWildcards",
     [](Trial& t) {
         t.content();
         for (NamedListing const& listing : treeListings) {
             t.expect(!filters(t, listing.list),
                      std::string(listing.name) +
                          " filters, though RecursiveWildcards is declared unsupported");
         }
     },
     Ability::RecursiveListing, Ability::RecursiveWildcards},
    {"LinkCreation",
     [](Trial& t) {
         expectUnsupported(t, Ability::LinkCreation, "createLink", [&] {
             t.extension<extensions::ILinks>().createLink(t.at(u"new"), u"target");
         });
         t.expectGone(u"new");
     },
     Ability::Links, Ability::LinkCreation},
    {"ChangeEvents",
     [](Trial& t) {
         ChangeKinds const kinds{events::Kind::Created};
         auto const callback = [](events::Kind const&, StorageIRI const&, StorageIRI const&,
                                  events::EntryType const&, boost::property_tree::ptree) {};
         expectNoEvents(t, "publishFileEvents",
                        [&] { t.provider().publishFileEvents(someFile(t), callback, kinds); });
         expectNoEvents(t, "publishFolderEvents", [&] {
             t.provider().publishFolderEvents(someFolder(t), callback, kinds,
                                              RecursiveFileWatching::NonRecursive);
         });
         expectNoEvents(t, "stopPublishingFileEvents",
                        [&] { t.provider().stopPublishingFileEvents(someFile(t)); });
         expectNoEvents(t, "stopPublishingFolderEvents",
                        [&] { t.provider().stopPublishingFolderEvents(someFolder(t)); });
     },
     {},
     Ability::ChangeEvents},
    {"RecursiveChangeEvents",
     [](Trial& t) {
         expectNoEvents(t, "publishFolderEvents of a tree", [&] {
             t.provider().publishFolderEvents(
                 someFolder(t),
                 [](events::Kind const&, StorageIRI const&, StorageIRI const&,
                    events::EntryType const&, boost::property_tree::ptree) {},
                 {events::Kind::Created}, RecursiveFileWatching::Recursive);
         });
     },
     {},
     Ability::RecursiveChangeEvents},
};

} // namespace

Family refusalFamily() {
    return {"Refusals", cases};
}

} // namespace foundation::storage::conformance::detail
