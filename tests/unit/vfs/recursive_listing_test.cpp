#include "fake_cursor.hpp"
#include "listed.hpp"

#include <gtest/gtest.h>

#include <numeric>

namespace {

using namespace vfs_test;
using provider::ExtendedFeature;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::FileOrFolderEntry;
using vfs::Folder;
using vfs::FolderEntry;
using vfs::FolderListing;
using vfs::ListEntry;
using vfs::ustring;
using Log = std::vector<std::string>;

template<class T>
struct Walk;
template<>
struct Walk<ListEntry> {
    static constexpr char const* flat = "listAllNamesOnly";
    static constexpr char const* native = "listAllRecursiveNamesOnly";
    static FolderListing<ListEntry> list(Folder const& folder, ustring pattern) {
        return folder.listAllRecursive(std::move(pattern));
    }
};
template<>
struct Walk<FileOrFolderEntry> {
    static constexpr char const* flat = "listAll";
    static constexpr char const* native = "listAllRecursive";
    static FolderListing<FileOrFolderEntry> list(Folder const& folder, ustring pattern) {
        return folder.listAllEntriesRecursive(std::move(pattern));
    }
};

/// Both recursive operations over scripted folders, the root being mem:/r.
template<class T>
class RecursiveListing : public testing::Test {
  protected:
    Folder root() const { return Folder(AbsoluteIRI(u"mem:/r"), storage.reference); }
    FolderListing<T> list(char16_t const* pattern = u"") const {
        return Walk<T>::list(root(), pattern);
    }
    Names locations(char16_t const* pattern = u"") const { return locationsIn(list(pattern)); }
    void offer(std::vector<ExtendedFeature> offered) {
        storage.fake->onHasFeature = [offered = std::move(offered)](ExtendedFeature asked) {
            return std::find(offered.begin(), offered.end(), asked) != offered.end();
        };
    }
    /// What the provider was asked, but for the questions whether an item is a folder.
    Log asked() const {
        Log log = storage.fake->log();
        std::erase_if(log, [](std::string const& line) { return line.starts_with("exists "); });
        return log;
    }
    static std::string flat(char const* rest) { return Walk<T>::flat + std::string(rest); }
    static std::string native(char const* rest) { return Walk<T>::native + std::string(rest); }
    /// r holds a, of x and y, then b, then c, which is empty, then d.
    void addExample() {
        tree.add(u"mem:/r", {folder(u"a"), file(u"b"), folder(u"c"), file(u"d")});
        tree.add(u"mem:/r/a", {file(u"x"), file(u"y")});
        tree.add(u"mem:/r/c", {});
    }

    FakeStorage storage;
    FakeTree tree{*storage.fake};
};

using WalkElements = testing::Types<ListEntry, FileOrFolderEntry>;
TYPED_TEST_SUITE(RecursiveListing, WalkElements, ElementName);

TYPED_TEST(RecursiveListing, ShowsAFolderBeforeItsContentsAndThoseBeforeItsNextSibling) {
    this->addExample();
    FolderListing<TypeParam> const all = this->list();
    EXPECT_EQ(namesIn(all), (Names{"a", "x", "y", "b", "c", "d"})) << "each by its simple name";
    EXPECT_EQ(locationsIn(all),
              (Names{"mem:/r/a", "mem:/r/a/x", "mem:/r/a/y", "mem:/r/b", "mem:/r/c", "mem:/r/d"}));
}

TYPED_TEST(RecursiveListing, ListsEveryFolderWholeWhateverThePattern) {
    this->addExample();
    EXPECT_EQ(this->locations(u"y"), Names{"mem:/r/a/y"});
    Log const expected{"hasFeature mem:/r 1", this->flat(" mem:/r <>"), this->flat(" mem:/r/a <>"),
                       this->flat(" mem:/r/c <>")};
    // A clone goes on from the match without listing a folder again.
    EXPECT_EQ(this->asked(), expected);
}

TYPED_TEST(RecursiveListing, AsksOneFeatureAndOnceWithoutAPattern) {
    this->tree.add(u"mem:/r", {file(u"a")});
    this->locations();
    EXPECT_EQ(this->asked(), (Log{"hasFeature mem:/r 1", this->flat(" mem:/r <>")}));
}

TYPED_TEST(RecursiveListing, EntersFoldersThatThePatternDoesNotShow) {
    this->tree.add(u"mem:/r", {folder(u"src"), file(u"b"), file(u"c.txt")});
    this->tree.add(u"mem:/r/src", {file(u"a.txt"), folder(u"x.txt")});
    this->tree.add(u"mem:/r/src/x.txt", {file(u"z"), file(u"y.txt")});
    EXPECT_EQ(this->locations(u"*.txt"), (Names{"mem:/r/src/a.txt", "mem:/r/src/x.txt",
                                                "mem:/r/src/x.txt/y.txt", "mem:/r/c.txt"}));
}

TYPED_TEST(RecursiveListing, LeavesSeveralFoldersAtOnce) {
    this->tree.add(u"mem:/r", {folder(u"a"), file(u"z")});
    this->tree.add(u"mem:/r/a", {folder(u"b")});
    this->tree.add(u"mem:/r/a/b", {folder(u"c")});
    this->tree.add(u"mem:/r/a/b/c", {});
    EXPECT_EQ(this->locations(), (Names{"mem:/r/a", "mem:/r/a/b", "mem:/r/a/b/c", "mem:/r/z"}));
}

TYPED_TEST(RecursiveListing, EndsInTheDepthToo) {
    this->tree.add(u"mem:/r", {folder(u"a")});
    this->tree.add(u"mem:/r/a", {folder(u"b")});
    this->tree.add(u"mem:/r/a/b", {file(u"c")});
    EXPECT_EQ(this->locations().size(), 3U);
    EXPECT_EQ(this->tree.alive(), 0);
}

TYPED_TEST(RecursiveListing, KeepsNoRecordOfFoldersAndKnowsNoDepth) {
    // A chain of a thousand folders of one name, as a loop of links would show it.
    std::u16string location = u"mem:/r";
    for (int depth = 0; depth < 1'000; ++depth) {
        this->tree.add(location.c_str(), {folder(u"l")});
        location += u"/l";
    }
    this->tree.add(location.c_str(), {});
    FolderListing<TypeParam> const all = this->list();
    int shown = 0;
    for (auto position = all.begin(); position != all.end(); ++position) {
        ++shown;
    }
    EXPECT_EQ(shown, 1'000);
}

TYPED_TEST(RecursiveListing, HoldsTwoCursorsForEachOpenFolder) {
    this->addExample();
    FolderListing<TypeParam> const all = this->list();
    EXPECT_EQ(this->tree.alive(), 2);
    auto position = all.begin();
    EXPECT_EQ(this->tree.alive(), 4);
    ++position;
    EXPECT_EQ(this->tree.alive(), 6) << "two more in a";
    ++position;
    ++position;
    EXPECT_EQ(nameOf(*position), "b");
    EXPECT_EQ(this->tree.alive(), 4) << "and gone again";
}

TYPED_TEST(RecursiveListing, CopyClonesTheCursorsOfEveryOpenFolder) {
    this->addExample();
    FolderListing<TypeParam> const all = this->list();
    auto position = all.begin();
    ++position;
    int const alive = this->tree.alive();
    auto const copy = position;
    EXPECT_EQ(this->tree.alive(), alive + 4);
}

TYPED_TEST(RecursiveListing, EmptyAnswersFalseWithoutAPatternAlwaysWhileItsEndsTell) {
    this->tree.add(u"mem:/r", {});
    FolderListing<TypeParam> const none = this->list();
    EXPECT_TRUE(none.begin() == none.end());
    EXPECT_FALSE(none.empty());
    EXPECT_EQ(namesIn(none), Names{});

    this->tree.add(u"mem:/r", {file(u"a")});
    FolderListing<TypeParam> const some = this->list();
    EXPECT_FALSE(some.begin() == some.end());
    EXPECT_FALSE(some.empty());
}

TYPED_TEST(RecursiveListing, EmptyTellsTheTruthUnderAPattern) {
    this->tree.add(u"mem:/r", {});
    EXPECT_TRUE(this->list(u"*").empty());
    this->addExample();
    EXPECT_FALSE(this->list(u"*").empty());
    FolderListing<TypeParam> const none = this->list(u"*.txt");
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(none.begin() == none.end());
}

TYPED_TEST(RecursiveListing, EmptyTellsTheTruthWhereTheProviderWalks) {
    this->offer({ExtendedFeature::RecursiveListing});
    this->tree.add(u"mem:/r", {});
    EXPECT_TRUE(this->list().empty());
    this->tree.add(u"mem:/r", {file(u"a")});
    EXPECT_FALSE(this->list().empty());
}

TYPED_TEST(RecursiveListing, CopyOfAListingLosesWhatKeptItFromItsEnd) {
    this->tree.add(u"mem:/r", {});
    FolderListing<TypeParam> const copy = FolderListing<TypeParam>(this->list());
    FolderListing<TypeParam> assigned;
    assigned = this->list();
    EXPECT_TRUE(assigned.empty()) << "the copy has no folder, and so equals its end";
    EXPECT_TRUE(copy.begin() == copy.end());
}

TYPED_TEST(RecursiveListing, MissingRootFailsTheOperation) {
    EXPECT_EQ(codeOf([&] { this->list(); }), ErrorCode::ResourceNotFound);
    EXPECT_EQ(codeOf([&] { this->list(u"*"); }), ErrorCode::ResourceNotFound);
    this->offer({ExtendedFeature::RecursiveListing});
    EXPECT_EQ(codeOf([&] { this->list(); }), ErrorCode::ResourceNotFound);
}

TYPED_TEST(RecursiveListing, FailureToListTheRootIsThrownWhateverTheReason) {
    for (std::uint32_t code = 0; code <= 12; ++code) {
        this->storage.fake->onList = [code](auto const&, StorageIRI const& l, ustring const&)
            -> std::unique_ptr<provider::IFolderEntryIterator> { fail(code, l); };
        EXPECT_EQ(codeOf([&] { this->list(); }), translatedCode(code));
    }
}

TYPED_TEST(RecursiveListing, FailureOfTheFirstElementOfTheRootIsThrown) {
    for (CursorCall const call :
         {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry, CursorCall::Clone}) {
        std::size_t const about = call == CursorCall::Clone ? 1 : 0;
        this->tree.add(u"mem:/r", {file(u"a")}).failOn(call, about, 2);
        EXPECT_EQ(codeOf([&] { this->list(); }), ErrorCode::PermissionDenied);
    }
}

TYPED_TEST(RecursiveListing, FailureToTellTheFeatureIsTranslated) {
    this->addExample();
    this->storage.fake->onHasFeature = [](ExtendedFeature) -> bool {
        fail(9, StorageIRI(u"mem:/x"));
    };
    EXPECT_EQ(codeOf([&] { this->list(); }), ErrorCode::IOError);
    this->storage.fake->onHasFeature = [](ExtendedFeature asked) -> bool {
        if (asked == ExtendedFeature::RecursiveWildcardListing) {
            fail(2, StorageIRI(u"mem:/x"));
        }
        return true;
    };
    EXPECT_EQ(codeOf([&] { this->list(u"*"); }), ErrorCode::PermissionDenied);
    EXPECT_NO_THROW(this->list()) << "which is not asked without a pattern";
}

// Once the root is open, what denies access or is gone there ends the walk before it begins: also
// the first element, which was fetched, goes.
TYPED_TEST(RecursiveListing, RootThatFailsAtItsSecondElementIsEmptyWhereItIsDeniedOrGone) {
    for (std::uint32_t const code : {2U, 4U}) {
        for (CursorCall const call :
             {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
            this->tree.add(u"mem:/r", {file(u"a"), file(u"b")}).failOn(call, 1, code);
            FolderListing<TypeParam> const none = this->list();
            EXPECT_TRUE(none.begin() == none.end());
            EXPECT_EQ(this->tree.alive(), 0) << "nothing is kept open";
        }
    }
}

TYPED_TEST(RecursiveListing, RootThatFailsAtItsSecondElementFailsTheOperationOtherwise) {
    for (std::uint32_t const code : {0U, 1U, 3U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U}) {
        this->tree.add(u"mem:/r", {file(u"a"), file(u"b")}).failOn(CursorCall::Advance, 1, code);
        EXPECT_EQ(codeOf([&] { this->list(); }), translatedCode(code));
    }
    this->tree.add(u"mem:/r", {file(u"a"), file(u"b")}).failOn(CursorCall::Advance, 1, [] {
        throw 42;
    });
    EXPECT_THROW(this->list(), int);
}

// Part of the walk for a provider that walks by itself.

TYPED_TEST(RecursiveListing, OfAProviderThatWalksIsOneCursorOfTheRoot) {
    this->offer({ExtendedFeature::RecursiveListing});
    this->tree.add(u"mem:/r", {folder(u"b"), file(u"b/c.txt"), file(u"a")});
    FolderListing<TypeParam> const all = this->list();
    EXPECT_EQ(namesIn(all), (Names{"b", "b/c.txt", "a"})) << "paths below the root, in its order";
    EXPECT_EQ(locationsIn(all), (Names{"mem:/r/b", "mem:/r/b/c.txt", "mem:/r/a"}));
    EXPECT_EQ(this->asked(), (Log{"hasFeature mem:/r 1", this->native(" mem:/r <>")}));
}

TYPED_TEST(RecursiveListing, OfAProviderThatWalksIsFilteredHereByTheLastComponent) {
    this->offer({ExtendedFeature::RecursiveListing, ExtendedFeature::FlatWildcardListing});
    this->tree.add(u"mem:/r", {folder(u"a"), folder(u"a/b"), file(u"a/b/c.txt"), file(u"d.txt")});
    FolderListing<TypeParam> const all = this->list(u"*.txt");
    EXPECT_EQ(namesIn(all), (Names{"a/b/c.txt", "d.txt"}));
    EXPECT_FALSE(all.empty());
    EXPECT_EQ(this->asked(),
              (Log{"hasFeature mem:/r 1", this->native(" mem:/r <*.txt>"), "hasFeature mem:/r 4"}));
}

TYPED_TEST(RecursiveListing, OfAProviderThatWalksAndFiltersIsItsOwnAnswer) {
    this->offer({ExtendedFeature::RecursiveListing, ExtendedFeature::RecursiveWildcardListing});
    this->tree.add(u"mem:/r", {folder(u"a"), file(u"a/c.txt")});
    EXPECT_EQ(namesIn(this->list(u"*.txt")), (Names{"a", "a/c.txt"}));
    EXPECT_EQ(this->asked(),
              (Log{"hasFeature mem:/r 1", this->native(" mem:/r <*.txt>"), "hasFeature mem:/r 4"}));
}

TYPED_TEST(RecursiveListing, FilteringAloneDoesNotStandInForWalking) {
    this->offer({ExtendedFeature::RecursiveWildcardListing, ExtendedFeature::FlatWildcardListing});
    this->addExample();
    EXPECT_EQ(this->locations(u"y"), Names{"mem:/r/a/y"});
    EXPECT_EQ(this->asked().at(1), this->flat(" mem:/r <>"));
}

TYPED_TEST(RecursiveListing, OfAProviderThatWalksFailsAsAFlatListingDoes) {
    this->offer({ExtendedFeature::RecursiveListing});
    CursorScript& script = this->tree.add(u"mem:/r", {file(u"a"), file(u"b/c")});
    script.failOn(CursorCall::HasNext, 1, 2);
    script.failOn(CursorCall::Advance, 1, 2);
    FolderListing<TypeParam> const all = this->list();
    auto position = all.begin();
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 2U) << "nothing is passed over";
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::PermissionDenied);
    EXPECT_EQ(namesFrom(position, all), (Names{"a", "b/c"}));
}

TYPED_TEST(RecursiveListing, ProviderThatWalksAndGivesNoCursorIsDefective) {
    this->offer({ExtendedFeature::RecursiveListing});
    this->storage.fake->onList = [](auto const&, auto const&, auto const&) { return nullptr; };
    EXPECT_EQ(codeOf([&] { this->list(); }), ErrorCode::InternalError);
}

TYPED_TEST(RecursiveListing, CloneInTheMiddleGoesItsOwnWay) {
    this->addExample();
    FolderListing<TypeParam> const all = this->list();
    auto source = all.begin();
    ++source;
    auto clone = source;
    EXPECT_TRUE(clone == source);
    EXPECT_EQ(nameOf(*clone), "x");
    ++source;
    EXPECT_FALSE(clone == source);
    EXPECT_EQ(nameOf(*clone), "x");
    EXPECT_EQ(namesFrom(source, all), (Names{"y", "b", "c", "d"}));
    EXPECT_FALSE(clone == source);
    EXPECT_EQ(namesFrom(clone, all), (Names{"x", "y", "b", "c", "d"}));
    EXPECT_TRUE(clone == source) << "both at the end";
    EXPECT_EQ(namesIn(all).size(), 6U) << "and the listing begins where it began";
}

TYPED_TEST(RecursiveListing, IteratorsMovedAlikeStandOnTheSameEntryAndAreNotEqual) {
    this->addExample();
    FolderListing<TypeParam> const all = this->list();
    auto one = all.begin();
    auto two = all.begin();
    EXPECT_TRUE(one == two);
    ++one;
    ++two;
    EXPECT_EQ(nameOf(*one), nameOf(*two));
    EXPECT_FALSE(one == two);
}

TYPED_TEST(RecursiveListing, IteratorOutlivesIt) {
    this->addExample();
    auto position = this->list().begin();
    Names names;
    for (int i = 0; i < 5; ++i, ++position) {
        names.push_back(nameOf(*position));
    }
    EXPECT_EQ(names, (Names{"a", "x", "y", "b", "c"}));
}

TEST(RecursiveListingOfNames, AsksTwiceAboutAFolderAndOnceAboutAFile) {
    FakeStorage storage;
    FakeTree tree(*storage.fake);
    tree.add(u"mem:/r", {folder(u"a"), file(u"b")});
    tree.add(u"mem:/r/a", {file(u"x")});
    locationsIn(Folder(AbsoluteIRI(u"mem:/r"), storage.reference).listAllRecursive());
    EXPECT_EQ(storage.fake->log(),
              (Log{"hasFeature mem:/r 1", "listAllNamesOnly mem:/r <>", "exists mem:/r/a",
                   "exists mem:/r/a", "listAllNamesOnly mem:/r/a <>", "exists mem:/r/a/x",
                   "exists mem:/r/b"}));
}

TEST(RecursiveListingOfEntries, AsksNothingAboutAnyElement) {
    FakeStorage storage;
    FakeTree tree(*storage.fake);
    tree.add(u"mem:/r", {folder(u"a"), file(u"b")});
    tree.add(u"mem:/r/a", {fileOfSize(u"x", 5)});
    FolderListing<FileOrFolderEntry> const all =
        Folder(AbsoluteIRI(u"mem:/r"), storage.reference).listAllEntriesRecursive();
    std::vector<FileOrFolderEntry> const entries(all.begin(), all.end());
    EXPECT_EQ(boost::get<vfs::FileEntry>(entries.at(1)).getAttributes().values().size, 5U);
    EXPECT_EQ(storage.fake->log(),
              (Log{"hasFeature mem:/r 1", "listAll mem:/r <>", "listAll mem:/r/a <>"}));
}

} // namespace
