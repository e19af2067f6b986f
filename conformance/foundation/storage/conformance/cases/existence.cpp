#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <algorithm>

namespace foundation::storage::conformance::detail {

namespace {

using enum Ability;
using Kind = DeclaredItem::Kind;

/// Where nothing can be: beside everything, below a missing folder, below a file.
std::vector<ustring> missingPlaces(Trial& t) {
    std::vector<ustring> places{u"not here", u"not here/nor below"};
    auto const& content = t.content();
    auto const file = std::find_if(content.begin(), content.end(), [](DeclaredItem const& item) {
        return item.kind == Kind::File;
    });
    if (file != content.end()) {
        places.push_back(file->path + u"/below a file");
    }
    return places;
}

/// An answer by value, or ResourceNotFound thrown in the place of `absent`.
template<class Answer>
Answer answerOr(Answer absent, std::function<Answer()> const& question) {
    try {
        return question();
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::ResourceNotFound) {
            throw;
        }
        return absent;
    }
}

constexpr Case cases[] = {
    {"ThePlaceIsAFolder",
     [](Trial& t) {
         t.expectEqual("exists of the place", t.exists({}), ExistsResult::Folder);
         t.expectEqual("existsExtended of the place", t.provider().existsExtended(t.at({})),
                       ExtendedExistsResult::Folder);
         t.expect(t.provider().folderExists(t.at({})), "folderExists of the place is false");
         t.expect(!t.provider().fileExists(t.at({})), "fileExists of the place is true");
     }},
    {"WhatIsThereIsToldByKind",
     [](Trial& t) {
         t.expect(!t.content().empty(), "there is nothing in the place to ask about");
         for (DeclaredItem const& item : t.content()) {
             bool const file = item.kind != Kind::Folder;
             t.expectEqual("exists of " + textOf(item.path), t.exists(item.path),
                           file ? ExistsResult::File : ExistsResult::Folder);
         }
     }},
    {"ExistsExtendedAgreesWithExists",
     [](Trial& t) {
         for (DeclaredItem const& item : t.content()) {
             if (item.kind == Kind::Link) {
                 continue; // where it leads decides
             }
             bool const file = item.kind == Kind::File;
             t.expectEqual("existsExtended of " + textOf(item.path),
                           t.provider().existsExtended(t.at(item.path)),
                           file ? ExtendedExistsResult::File : ExtendedExistsResult::Folder);
         }
     }},
    {"FileExistsIsTrueOfFilesAlone",
     [](Trial& t) {
         for (DeclaredItem const& item : t.content()) {
             t.expectEqual("fileExists of " + textOf(item.path),
                           t.provider().fileExists(t.at(item.path)), item.kind != Kind::Folder);
         }
     }},
    {"FolderExistsIsTrueOfFoldersAlone",
     [](Trial& t) {
         for (DeclaredItem const& item : t.content()) {
             if (item.kind == Kind::Link) {
                 continue; // where it leads decides
             }
             t.expectEqual("folderExists of " + textOf(item.path),
                           t.provider().folderExists(t.at(item.path)), item.kind == Kind::Folder);
         }
     }},
    {"NothingIsToldOfWhatIsMissing",
     [](Trial& t) {
         for (ustring const& path : missingPlaces(t)) {
             t.expectEqual("exists of the missing " + textOf(path), t.exists(path),
                           ExistsResult::Nothing);
             t.expectEqual("existsExtended of the missing " + textOf(path),
                           answerOr<ExtendedExistsResult>(
                               ExtendedExistsResult::Nothing,
                               [&] { return t.provider().existsExtended(t.at(path)); }),
                           ExtendedExistsResult::Nothing);
         }
     }},
    {"WhatIsMissingIsNeitherFileNorFolder",
     [](Trial& t) {
         for (ustring const& path : missingPlaces(t)) {
             t.expect(!answerOr<bool>(false, [&] { return t.provider().fileExists(t.at(path)); }),
                      "fileExists of the missing " + textOf(path) + " is true");
             t.expect(!answerOr<bool>(false, [&] { return t.provider().folderExists(t.at(path)); }),
                      "folderExists of the missing " + textOf(path) + " is true");
         }
     }},
    {"QuestionsMakeNothing",
     [](Trial& t) {
         t.exists(u"asked");
         t.provider().existsExtended(t.at(u"asked"));
         t.provider().folderExists(t.at(u"asked"));
         t.expectGone(u"asked");
         t.expectEqual("the listing of the place", t.names({}), {});
     },
     Listing | FileCreation},
    {"AnyNumberOfAsksGivesOneAnswer",
     [](Trial& t) {
         for (DeclaredItem const& item : t.content()) {
             ExistsResult const first = t.exists(item.path);
             for (int time = 0; time < 20; ++time) {
                 if (!t.expectEqual("exists once more of " + textOf(item.path), t.exists(item.path),
                                    first)) {
                     return;
                 }
             }
         }
     }},
    {"ATrailingSlashChangesNothing",
     [](Trial& t) {
         for (DeclaredItem const& item : t.content()) {
             if (item.kind == Kind::Folder) {
                 t.expectEqual("exists of the folder " + textOf(item.path + u"/"),
                               t.exists(item.path + u"/"), ExistsResult::Folder);
             }
         }
     }},
    {"AnotherSpellingOfALocationIsTheSameItem",
     [](Trial& t) {
         for (DeclaredItem const& item : t.content()) {
             StorageIRI const parent(t.at(item.path).getParent());
             ustring const name = t.at(item.path).getName();
             ustring spelled;
             for (char16_t const unit : name) {
                 constexpr char16_t digits[] = u"0123456789ABCDEF";
                 bool const ascii = unit < 0x80;
                 spelled +=
                     ascii ? ustring{u'%', digits[unit / 16], digits[unit % 16]} : ustring{unit};
             }
             StorageIRI const other(parent.toString() +
                                    (parent.toString().ends_with(u'/') ? u"" : u"/") + spelled);
             t.expectEqual("exists of " + textOf(other), t.provider().exists(other),
                           t.exists(item.path));
         }
     }},
    {"TheCanonicalLocationIsThatOfTheSameItem",
     [](Trial& t) {
         for (DeclaredItem const& item : t.content()) {
             if (item.kind == Kind::Link) {
                 continue; // it is where the link leads
             }
             StorageIRI const canonical = t.provider().getCanonicalLocation(t.at(item.path));
             t.expectEqual("exists of the canonical " + textOf(canonical),
                           t.provider().exists(canonical), t.exists(item.path));
             t.expectEqual("the canonical location of a canonical one",
                           t.provider().getCanonicalLocation(canonical), canonical);
             t.expectEqual("the name of the canonical location", canonical.getName(),
                           t.at(item.path).getName());
         }
     }},
    {"TheCanonicalLocationOfAMissingItemIsItsOwn",
     [](Trial& t) {
         StorageIRI const folder = t.provider().getCanonicalLocation(t.at({}));
         t.expectEqual("the canonical location of a missing item",
                       t.provider().getCanonicalLocation(t.at(u"not here")),
                       StorageIRI(folder, u"not here"));
     }},
    {"TheCanonicalLocationInAMissingFolderIsNotFound",
     [](Trial& t) {
         StorageIRI const asked = t.at(u"not here/nor below");
         t.expectNotFoundOnTheWay(
             "getCanonicalLocation in a missing folder",
             [&] { t.provider().getCanonicalLocation(asked); }, asked);
     }},
    {"TheComparatorKnowsEqualNames",
     [](Trial& t) {
         auto const same = t.provider().getPathComparator(t.at({}));
         if (!t.expect(static_cast<bool>(same), "getPathComparator gave an empty function")) {
             return;
         }
         for (auto const modifier :
              {CaseModifier::AsStorage, CaseModifier::Sensitive, CaseModifier::Insensitive}) {
             t.expect(same(u"a name", u"a name", modifier), "one name is not the same as itself");
             t.expect(!same(u"a name", u"another", modifier), "two names are the same");
             t.expect(!same(u"name", u"name ", modifier), "a name is the same as a longer one");
             t.expect(same(u"", u"", modifier), "the empty name is not the same as itself");
         }
     }},
    {"TheComparatorObeysTheCaseModifier",
     [](Trial& t) {
         auto const same = t.provider().getPathComparator(t.at({}));
         t.expect(!same(u"Name", u"nAME", CaseModifier::Sensitive),
                  "compared with case, Name and nAME are the same");
         t.expect(same(u"Name", u"nAME", CaseModifier::Insensitive),
                  "compared without case, Name and nAME differ");
     }},
    {"TheComparatorAgreesWithTheSensitivity",
     [](Trial& t) {
         bool const sensitive =
             t.provider().getFilenameSensitivity(t.at({})) == FilenameSensitivity::Sensitive;
         auto const same = t.provider().getPathComparator(t.at({}));
         t.expectEqual("comparing Name and nAME as the storage does",
                       same(u"Name", u"nAME", CaseModifier::AsStorage), !sensitive);
     }},
    {"TheStorageAgreesWithItsSensitivity",
     [](Trial& t) {
         t.makeFile(u"Name");
         bool const sensitive =
             t.provider().getFilenameSensitivity(t.at({})) == FilenameSensitivity::Sensitive;
         t.expectEqual("nAME is there where Name was made", t.isThere(u"nAME"), !sensitive);
     },
     FileCreation},
    {"AFeatureHasOneAnswer",
     [](Trial& t) {
         for (std::uint32_t feature = 0; feature < 5; ++feature) {
             auto const asked = static_cast<ExtendedFeature>(feature);
             bool const first = t.provider().hasFeature(t.at({}), asked);
             t.expectEqual("hasFeature once more", t.provider().hasFeature(t.at({}), asked), first);
         }
     }},
    {"AnUnknownFeatureIsNotOffered",
     [](Trial& t) {
         t.expect(!t.provider().hasFeature(t.at({}), static_cast<ExtendedFeature>(4711)),
                  "the feature 4711 is offered");
     }},
};

} // namespace

Family existenceFamily() {
    return {"Existence", cases};
}

} // namespace foundation::storage::conformance::detail
