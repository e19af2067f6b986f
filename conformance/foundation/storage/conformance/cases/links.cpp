// extensions::ILinks and extensions::IFolderAttributes.

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>

#include <fl/i18n/conversion.hpp>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;

constexpr AbilitySet forLinks = Links | LinkCreation | FileCreation | FolderCreation;

extensions::ILinks& links(Trial& t) {
    return t.extension<extensions::ILinks>();
}

/// A file, a folder, and links to both and to nothing.
void makeLinks(Trial& t) {
    t.makeFile(u"file");
    t.makeFolder(u"folder");
    t.makeLink(u"to file", u"file");
    t.makeLink(u"to folder", u"folder");
    t.makeLink(u"to nothing", u"nothing");
}
constexpr char16_t const* allLinks[] = {u"to file", u"to folder", u"to nothing"};

constexpr Case cases[] = {
    {"LinksAreReadAndNothingElse",
     [](Trial& t) {
         for (DeclaredItem const& item : std::vector(t.content())) {
             if (item.kind == DeclaredItem::Kind::Link) {
                 t.expectEqual("readLink of " + textOf(item.path),
                               fl::i18n::toDisplayString(links(t).readLink(t.at(item.path))),
                               item.bytes);
             } else {
                 t.expectRefused(
                     "readLink of " + textOf(item.path),
                     [&] { links(t).readLink(t.at(item.path)); }, ErrorCode::InvalidLocation,
                     t.at(item.path));
             }
         }
         t.expectRefused(
             "readLink of what is missing", [&] { links(t).readLink(t.at(u"not here")); },
             ErrorCode::ResourceNotFound, t.at(u"not here"));
     },
     Links},
    {"ALinkIsAFile",
     [](Trial& t) {
         makeLinks(t);
         for (ustring const path : allLinks) {
             t.expectEqual("exists of the link " + textOf(path), t.exists(path),
                           ExistsResult::File);
             t.expect(t.provider().fileExists(t.at(path)),
                      "fileExists of the link " + textOf(path) + " is false");
             t.expectEqual("folderExists of the link " + textOf(path),
                           t.provider().folderExists(t.at(path)), path == u"to folder");
         }
     },
     forLinks},
    {"ExistsExtendedTellsWhereALinkLeads",
     [](Trial& t) {
         makeLinks(t);
         using enum ExtendedExistsResult;
         t.expectEqual("existsExtended of a link to a file",
                       t.provider().existsExtended(t.at(u"to file")), LinkToFile);
         t.expectEqual("existsExtended of a link to a folder",
                       t.provider().existsExtended(t.at(u"to folder")), LinkToFolder);
         t.expectEqual("existsExtended of a link to nothing",
                       t.provider().existsExtended(t.at(u"to nothing")), DanglingLink);
     },
     forLinks},
    {"ATargetIsReadAsItWasWritten",
     [](Trial& t) {
         unsigned number = 0;
         for (ustring const& target :
              {ustring(u"file"), ustring(u"../up/and/./down"), ustring(u"/from/the/root"),
               ustring(u"a//b/"), ustring(u" "), ustring(u"100%"), ustring(u"a?b#c"),
               ustring(u"\u00fc\U0001F600"), ustring{u'a', char16_t{0xDCFF}}, ustring(200, u'x')}) {
             ustring const path = u"link " + ustring(1, static_cast<char16_t>(u'0' + number++));
             t.makeLink(path, target);
             t.expectEqual("readLink", links(t).readLink(t.at(path)), target);
         }
     },
     Links | LinkCreation},
    {"NoneIsMadeOverAnything",
     [](Trial& t) {
         makeLinks(t);
         for (ustring const path : {u"file", u"folder", u"to file", u"to nothing"}) {
             t.expectRefused(
                 "createLink over " + textOf(path), [&] { links(t).createLink(t.at(path), u"x"); },
                 ErrorCode::ResourceAlreadyExists, t.at(path));
         }
         t.expectEqual("readLink behind", links(t).readLink(t.at(u"to file")), ustring(u"file"));
     },
     forLinks},
    {"NoneIsMadeInAMissingFolderOrWithoutATarget",
     [](Trial& t) {
         StorageIRI const below = t.at(u"missing/link");
         t.expectNotFoundOnTheWay(
             "createLink in a missing folder", [&] { links(t).createLink(below, u"x"); }, below);
         t.expectRefused(
             "createLink with an empty target", [&] { links(t).createLink(t.at(u"link"), {}); },
             ErrorCode::ResourceNotFound, t.at(u"link"));
         t.expectGone(u"link");
     },
     Links | LinkCreation},
    {"NothingIsCreatedOverALink",
     [](Trial& t) {
         makeLinks(t);
         for (ustring const path : allLinks) {
             t.expectRefused(
                 "createFile over the link " + textOf(path),
                 [&] { t.provider().createFile(t.at(path)); }, ErrorCode::ResourceAlreadyExists,
                 t.at(path));
             t.expectRefused(
                 "createFolder over the link " + textOf(path),
                 [&] { t.provider().createFolder(t.at(path)); }, ErrorCode::ResourceAlreadyExists,
                 t.at(path));
         }
         t.expectGone(u"nothing");
     },
     forLinks},
    {"RemovingTakesTheLinkAlone",
     [](Trial& t) {
         makeLinks(t);
         for (ustring const path : allLinks) {
             t.provider().removeFile(t.at(path));
             t.expectGone(path);
         }
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     forLinks | FileRemoval},
    {"ALinkIsNotRemovedAsAFolder",
     [](Trial& t) {
         makeLinks(t);
         t.expectRefused(
             "removeFolder of a link to a folder",
             [&] { t.provider().removeFolder(t.at(u"to folder")); }, ErrorCode::ResourceNotFound,
             t.at(u"to folder"));
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     forLinks | FolderRemoval},
    {"ALinkIsNotRemovedAsATree",
     [](Trial& t) {
         makeLinks(t);
         t.makeFile(u"folder/inside");
         t.expectRefused(
             "removeFolderRecursively of a link to a folder",
             [&] { t.provider().removeFolderRecursively(t.at(u"to folder")); },
             ErrorCode::ResourceNotFound, t.at(u"to folder"));
         t.expectEqual("exists of the file in the folder", t.exists(u"folder/inside"),
                       ExistsResult::File);
     },
     forLinks | TreeRemoval},
    {"RemovingATreeLeavesWhatItsLinksLeadTo",
     [](Trial& t) {
         t.makeFolder(u"kept");
         t.makeFile(u"kept/file");
         t.makeFolder(u"tree");
         t.makeLink(u"tree/out", u"../kept");
         t.makeLink(u"tree/up", u"..");
         t.provider().removeFolderRecursively(t.at(u"tree"));
         t.expectGone(u"tree");
         t.expectEqual("exists of the file that a link led to", t.exists(u"kept/file"),
                       ExistsResult::File);
     },
     forLinks | TreeRemoval},
    {"OpeningFollowsALink",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeLink(u"link", u"file");
         t.expectEqual("what is read through a link", t.bytesOf(u"link"), std::string("content"));
         t.makeFile(u"link", "written through");
         t.expectFile(u"file", "written through");
         t.expectEqual("existsExtended of the link", t.provider().existsExtended(t.at(u"link")),
                       ExtendedExistsResult::LinkToFile);
     },
     forLinks | Writing | Reading},
    {"ALinkToNothingIsNotReadAndMakesItsTarget",
     [](Trial& t) {
         t.makeLink(u"link", u"target");
         t.expectRefused(
             "openReadOnlyStream of a link to nothing",
             [&] { t.provider().openReadOnlyStream(t.at(u"link")); }, ErrorCode::ResourceNotFound,
             t.at(u"link"));
         t.makeFile(u"link", "made");
         t.expectFile(u"target", "made");
     },
     forLinks | Writing | Reading},
    {"PathsGoThroughLinks",
     [](Trial& t) {
         makeLinks(t);
         t.makeFile(u"to folder/inside");
         t.expectEqual("exists of what was made through a link", t.exists(u"folder/inside"),
                       ExistsResult::File);
         t.expectEqual("exists through a link", t.exists(u"to folder/inside"), ExistsResult::File);
         t.expectEqual("exists through a link to a file", t.exists(u"to file/inside"),
                       ExistsResult::Nothing);
     },
     forLinks},
    {"ACircleOnTheWayIsInvalid",
     [](Trial& t) {
         t.makeLink(u"one", u"two");
         t.makeLink(u"two", u"one");
         t.expectEqual("exists of a link in a circle", t.exists(u"one"), ExistsResult::File);
         StorageIRI const below = t.at(u"one/below");
         t.expectRefused(
             "createFile behind a circle", [&] { t.provider().createFile(below); },
             ErrorCode::InvalidLocation, below);
         t.expectRefused(
             "getCanonicalLocation of a circle",
             [&] { t.provider().getCanonicalLocation(t.at(u"one")); }, ErrorCode::InvalidLocation,
             t.at(u"one"));
     },
     forLinks},
    {"TheCanonicalLocationHasNoLinks",
     [](Trial& t) {
         makeLinks(t);
         StorageIRI const place = t.provider().getCanonicalLocation(t.at({}));
         t.expectEqual("the canonical location of a link",
                       t.provider().getCanonicalLocation(t.at(u"to file")),
                       StorageIRI(place, u"file"));
         t.expectEqual("the canonical location behind a link",
                       t.provider().getCanonicalLocation(t.at(u"to folder/new")),
                       StorageIRI(place, u"folder/new"));
     },
     forLinks},
    {"AttributesAreThoseOfTheTarget",
     [](Trial& t) {
         t.makeFile(u"file", "content");
         t.makeFolder(u"folder");
         t.makeLink(u"to file", u"file");
         t.makeLink(u"to folder", u"folder");
         t.expectEqual("the size through a link",
                       t.provider().getFileAttributes(t.at(u"to file")).values().size,
                       std::optional<std::uint64_t>(7));
         t.provider().getFolderAttributes(t.at(u"to folder"));
         t.expectRefused(
             "getFolderAttributes of a link to a file",
             [&] { t.provider().getFolderAttributes(t.at(u"to file")); },
             ErrorCode::ResourceNotFound, t.at(u"to file"));
     },
     forLinks | Writing | Ability::FileAttributes | Ability::FolderAttributes},
    {"ALinkToNothingHasAttributesOfItsOwn",
     [](Trial& t) {
         makeLinks(t);
         t.expectDone("getFileAttributes of a link to nothing",
                      [&] { t.provider().getFileAttributes(t.at(u"to nothing")); });
     },
     forLinks | Ability::FileAttributes},
    {"WhatIsSetIsSetBehindTheLink",
     [](Trial& t) {
         makeLinks(t);
         t.provider().setLastModified(t.at(u"to file"), toPtime({1'000'000'000, 0}));
         t.provider().setWritable(t.at(u"to file"), false);
         AttributeValues const values = t.provider().getFileAttributes(t.at(u"file")).values();
         t.expectEqual("the time of the target", values.lastModified, Timestamp{1'000'000'000, 0});
         t.expect(!values.writable, "the target is writable");
         t.expectRefused(
             "setWritable of a link to nothing",
             [&] { t.provider().setWritable(t.at(u"to nothing"), false); },
             ErrorCode::UnsupportedOperation, t.at(u"to nothing"));
     },
     forLinks | Times | ReadOnlyItems | Ability::FileAttributes},
    {"LinksAreListedAsFiles",
     [](Trial& t) {
         makeLinks(t);
         t.makeFile(u"folder/inside");
         t.expectEqual("listFilesNamesOnly", t.names({}, &IProvider::listFilesNamesOnly),
                       {u"file", u"to file", u"to folder", u"to nothing"});
         t.expectEqual("listFolders", t.names({}, &IProvider::listFolders), {u"folder"});
         t.expectEqual("listAll of a link to a folder", t.names(u"to folder", &IProvider::listAll),
                       {u"inside"});
         for (ustring const path : {u"to file", u"to nothing"}) {
             t.expectRefused(
                 "listAll of " + textOf(path), [&] { t.provider().listAll(t.at(path), {}); },
                 ErrorCode::ResourceNotFound, t.at(path));
         }
     },
     forLinks | Ability::Listing},
    {"NoTreeListingEntersALink",
     [](Trial& t) {
         makeLinks(t);
         t.makeFile(u"folder/inside");
         t.makeLink(u"folder/up", u"..");
         for (NamedListing const& listing : treeListings) {
             t.expectEqual(listing.name, t.names({}, listing.list),
                           {u"file", u"folder", u"folder/inside", u"folder/up", u"to file",
                            u"to folder", u"to nothing"});
         }
     },
     forLinks | Ability::RecursiveListing},
    {"ACopyOfALinkIsALink",
     [](Trial& t) {
         makeLinks(t);
         for (ustring const path : allLinks) {
             t.copy(path, u"copy of " + path);
             t.expectEqual("readLink of the copy of " + textOf(path),
                           links(t).readLink(t.at(u"copy of " + path)),
                           links(t).readLink(t.at(path)));
         }
     },
     forLinks | FileCopies},
    {"ACopyOverALinkReplacesTheLink",
     [](Trial& t) {
         t.makeFile(u"file", "new");
         t.makeFile(u"target", "kept");
         t.makeLink(u"link", u"target");
         t.copy(u"file", u"link", ReplacementPolicy::ReplaceExisting);
         t.expectEqual("existsExtended behind", t.provider().existsExtended(t.at(u"link")),
                       ExtendedExistsResult::File);
         t.expectFile(u"link", "new");
         t.expectFile(u"target", "kept");
     },
     forLinks | FileCopies | Writing},
    {"AFileIsNotCopiedOntoALinkToItself",
     [](Trial& t) {
         t.makeFile(u"file", "kept");
         t.makeLink(u"link", u"file");
         for (ReplacementPolicy const policy : allPolicies) {
             t.expectRefused(
                 "copyFile onto a link to the source", [&] { t.copy(u"file", u"link", policy); },
                 ErrorCode::InvalidLocation, t.at(u"file"));
             t.expectRefused(
                 "copyFile of a link onto its target", [&] { t.copy(u"link", u"file", policy); },
                 ErrorCode::InvalidLocation, t.at(u"link"));
         }
         t.expectFile(u"file", "kept");
     },
     forLinks | FileCopies | Writing},
    {"AMoveTakesTheLinkAlone",
     [](Trial& t) {
         makeLinks(t);
         for (ustring const path : allLinks) {
             ustring const target = links(t).readLink(t.at(path));
             t.provider().moveFile(t.at(path), t.at(u"moved " + path),
                                   ReplacementPolicy::FailIfExists);
             t.expectEqual("readLink behind a move", links(t).readLink(t.at(u"moved " + path)),
                           target);
             t.expectGone(path);
         }
         t.expectEqual("exists of the file", t.exists(u"file"), ExistsResult::File);
         t.expectEqual("exists of the folder", t.exists(u"folder"), ExistsResult::Folder);
     },
     forLinks | FileMoves},
    {"ALinkToAFolderDoesNotMoveAsAFolder",
     [](Trial& t) {
         makeLinks(t);
         t.expectRefused(
             "moveFolder of a link to a folder",
             [&] {
                 t.provider().moveFolder(t.at(u"to folder"), t.at(u"moved"),
                                         ReplacementPolicy::FailIfExists);
             },
             ErrorCode::InvalidLocation, t.at(u"to folder"));
         t.expectGone(u"moved");
     },
     forLinks | FolderMoves},
    {"AFolderGetsTheAttributesThatAreGivenAndKeepsTheOthers",
     [](Trial& t) {
         t.makeFolder(u"folder");
         auto& folders = t.extension<extensions::IFolderAttributes>();
         Timestamp const time{1'234'567'890, 123'456'789};
         folders.setFolderAttributes(t.at(u"folder"), {0711, time, {}});
         AttributeValues values = t.provider().getFolderAttributes(t.at(u"folder")).values();
         t.expectEqual("the time", values.lastModified, time);
         t.expectEqual("the mode", values.mode, std::optional<std::uint32_t>(0711));
         folders.setFolderAttributes(t.at(u"folder"), {0755, {}, {}});
         values = t.provider().getFolderAttributes(t.at(u"folder")).values();
         t.expectEqual("the time behind a change of the mode", values.lastModified, time);
         t.expectEqual("the mode behind its change", values.mode,
                       std::optional<std::uint32_t>(0755));
     },
     FolderAttributeChange | FolderCreation | Ability::FolderAttributes},
    {"OnlyAFolderItselfGetsFolderAttributes",
     [](Trial& t) {
         t.makeFile(u"file");
         auto& folders = t.extension<extensions::IFolderAttributes>();
         t.expectRefused(
             "setFolderAttributes of a file",
             [&] {
                 folders.setFolderAttributes(t.at(u"file"), {0711, {}, {}});
             },
             ErrorCode::InvalidLocation, t.at(u"file"));
         t.expectRefused(
             "setFolderAttributes of what is missing",
             [&] {
                 folders.setFolderAttributes(t.at(u"missing"), {0711, {}, {}});
             },
             ErrorCode::ResourceNotFound, t.at(u"missing"));
         if (t.has(Links) && t.has(LinkCreation)) {
             t.makeLink(u"link", u".");
             t.expectRefused(
                 "setFolderAttributes of a link",
                 [&] {
                     folders.setFolderAttributes(t.at(u"link"), {0711, {}, {}});
                 },
                 ErrorCode::InvalidLocation, t.at(u"link"));
         }
     },
     FolderAttributeChange | FileCreation},
};

} // namespace

Family linkFamily() {
    return {"Links", cases};
}

} // namespace foundation::storage::conformance::detail
