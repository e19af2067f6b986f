#include <foundation/storage/vfs/listing/detail/folder_iterator_wildcards_impl.hpp>
#include <foundation/storage/vfs/listing/detail/folder_listing_iterator_impl.hpp>

#include "fake_cursor.hpp"
#include "listed.hpp"
#include "recorded_iterator.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::File;
using vfs::FileEntry;
using vfs::FileOrFolder;
using vfs::FileOrFolderEntry;
using vfs::Folder;
using vfs::FolderEntry;
using vfs::FolderListing;
using vfs::ListEntry;
using vfs::ustring;
using vfs::detail::FolderIteratorWildcardsImpl;
using vfs::detail::FolderListingIteratorImpl;

class WildcardListing : public testing::Test {
  protected:
    Folder at() const { return Folder(AbsoluteIRI(u"mem:/f"), storage.reference); }

    FakeStorage storage;
    FakeTree tree{*storage.fake};
};

/// The filter over a plain listing, for every type of element.
template<class T>
class Filter : public WildcardListing {
  protected:
    using Plain = FolderListingIteratorImpl<T>;
    using Filtered = FolderIteratorWildcardsImpl<T>;

    std::shared_ptr<Plain> plain(std::vector<provider::FolderEntry> entries) {
        script = std::make_shared<CursorScript>(std::move(entries));
        return std::make_shared<Plain>(at(), std::make_unique<FakeCursor>(script));
    }
    std::shared_ptr<Filtered> filter(std::vector<provider::FolderEntry> entries,
                                     char16_t const* pattern) {
        return std::make_shared<Filtered>(plain(std::move(entries)), pattern);
    }
    Names matching(std::vector<provider::FolderEntry> entries, char16_t const* pattern) {
        return namesIn(FolderListing<T>(filter(std::move(entries), pattern)));
    }

    std::shared_ptr<CursorScript> script;
};

TYPED_TEST_SUITE(Filter, Elements, ElementName);

TYPED_TEST(Filter, ShowsWhatMatchesInItsOrder) {
    EXPECT_EQ(
        this->matching({file(u"b.txt"), file(u"c"), folder(u"a.txt"), file(u".txt")}, u"*.txt"),
        (Names{"b.txt", "a.txt", ".txt"}));
}

TYPED_TEST(Filter, JudgesTheLastComponentOfTheName) {
    FolderListing<TypeParam> const inside(
        this->filter({file(u"a/b.txt"), folder(u"c/d.txt")}, u"b.txt"));
    EXPECT_EQ(locationsIn(inside), Names{"mem:/f/a/b.txt"});
    EXPECT_EQ(this->matching({file(u"a/b.txt")}, u"a*"), Names{});
    EXPECT_EQ(this->matching({file(u"a/b.txt")}, u"a/b.txt"), Names{});
    EXPECT_EQ(this->matching({file(u"a/b.txt")}, u"*/*"), Names{})
        << "a slash in a pattern means no path";
}

TYPED_TEST(Filter, ComparesCaseAndUnitsWhateverTheStorageWouldSay) {
    this->storage.fake->onGetFilenameSensitivity = [] {
        return provider::FilenameSensitivity::Insensitive;
    };
    this->storage.fake->onGetPathComparator = [] {
        return [](auto const&, auto const&, provider::CaseModifier) { return true; };
    };
    EXPECT_EQ(this->matching({file(u"AB"), file(u"ab"), file(u"\u00E9"), file(u"e\u0301")}, u"ab"),
              Names{"ab"});
    EXPECT_EQ(this->matching({file(u"\u00E9"), file(u"e\u0301")}, u"\u00E9"), Names{"\xC3\xA9"});
    EXPECT_TRUE(this->storage.fake->calls().empty());
}

TYPED_TEST(Filter, TakesACharacterOutsideTheBasicPlaneForTwoUnits) {
    EXPECT_EQ(this->matching({file(u"\U0001F600")}, u"?"), Names{});
    EXPECT_EQ(this->matching({file(u"\U0001F600")}, u"??").size(), 1U);
}

TYPED_TEST(Filter, ThatNothingPassesHasReadEverythingBeforeItIsThere) {
    FolderListing<TypeParam> const none(this->filter({file(u"a"), file(u"b")}, u"*.txt"));
    EXPECT_EQ(this->script->count(CursorCall::CurrentEntry), 2);
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(none.begin() == none.end());
}

TYPED_TEST(Filter, ThatTheLastChildPassesStandsOnIt) {
    FolderListing<TypeParam> const last(
        this->filter({file(u"a"), file(u"b"), file(u"c.txt")}, u"*.txt"));
    EXPECT_FALSE(last.empty());
    auto position = last.begin();
    EXPECT_EQ(nameOf(*position), "c.txt");
    ++position;
    EXPECT_TRUE(position == last.end());
}

TYPED_TEST(Filter, TraversalsBeginAtTheFirstMatchWithoutSearchingAgain) {
    FolderListing<TypeParam> const all(
        this->filter({file(u"a"), file(u"b.txt"), file(u"c.txt")}, u"*.txt"));
    int const asked = this->script->count(CursorCall::HasNext);
    EXPECT_EQ(asked, 2) << "for the first child, and on to the second";
    auto one = all.begin();
    auto two = all.begin();
    EXPECT_EQ(this->script->count(CursorCall::HasNext), asked);
    EXPECT_TRUE(one == two);
    ++one;
    EXPECT_EQ(nameOf(*one), "c.txt");
    EXPECT_EQ(namesFrom(two, all), (Names{"b.txt", "c.txt"}));
    EXPECT_FALSE(all.empty());
}

TYPED_TEST(Filter, CloneEqualsItsSourceUntilOneOfThemMoves) {
    FolderListing<TypeParam> const all(
        this->filter({file(u"a.txt"), file(u"b"), file(u"c.txt")}, u"*.txt"));
    auto source = all.begin();
    auto clone = source;
    EXPECT_TRUE(clone == source);
    EXPECT_EQ(&*clone, &*source);
    ++source;
    EXPECT_FALSE(clone == source);
    EXPECT_EQ(nameOf(*clone), "a.txt");
    ++clone;
    EXPECT_EQ(nameOf(*clone), "c.txt") << "a clone knows the pattern";
    EXPECT_FALSE(clone == source) << "the same entry, and not the same element";
    ++clone;
    ++source;
    EXPECT_TRUE(clone == source);
    EXPECT_TRUE(clone == all.end());
}

TYPED_TEST(Filter, LeavesTheIteratorThatItWasGivenWhereItStands) {
    auto const wrapped = this->plain({file(u"a"), file(u"b.txt")});
    typename TestFixture::Filtered filtered(wrapped, u"*.txt");
    EXPECT_EQ(nameOf(wrapped->dereference()), "a");
    EXPECT_EQ(nameOf(filtered.dereference()), "b.txt");
    filtered.increment();
    EXPECT_TRUE(filtered.equal(*filtered.buildEndIterator()));
    EXPECT_EQ(nameOf(wrapped->dereference()), "a");
}

TYPED_TEST(Filter, ComparesPositionsAndNotPatterns) {
    auto const wrapped = this->plain({file(u"ab"), file(u"ac")});
    typename TestFixture::Filtered const one(wrapped, u"a*");
    typename TestFixture::Filtered const other(wrapped, u"*b");
    EXPECT_TRUE(one.equal(other));
    EXPECT_FALSE(one.equal(*one.buildEndIterator()));
}

TYPED_TEST(Filter, MayBeMadeOfNothing) {
    EXPECT_TRUE(std::is_default_constructible_v<typename TestFixture::Filtered>);
}

TYPED_TEST(Filter, FailureOfTheCursorInASearchComesOutAsTheWrappedIteratorThrowsIt) {
    FolderListing<TypeParam> const all(
        this->filter({file(u"a.txt"), file(u"b"), file(u"c"), file(u"d.txt")}, u"*.txt"));
    this->script->failOn(CursorCall::HasNext, 2, 9);
    this->script->failOn(CursorCall::Advance, 2, 6);
    this->script->failOn(CursorCall::CurrentEntry, 2, 5);
    auto position = all.begin();
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 9U);
    EXPECT_EQ(nameOf(*position), "b") << "where the wrapped iterator was left, matching or not";
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::ResourceInUse);
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 5U);
    EXPECT_EQ(nameOf(*position), "b");
    ++position;
    EXPECT_EQ(nameOf(*position), "d.txt");
}

TYPED_TEST(Filter, WhatIsNoFailureOfTheProviderPassesThroughTheSearch) {
    FolderListing<TypeParam> const all(this->filter({file(u"a.txt"), file(u"b")}, u"*.txt"));
    this->script->failOn(CursorCall::Advance, 1, [] { throw 42; });
    auto position = all.begin();
    EXPECT_THROW(++position, int);
}

/// Elements that make their handle late: the filter makes it, of matching elements and others.
template<class T>
class LateHandle : public Filter<T> {};
using LateElements = testing::Types<FileEntry, FolderEntry, FileOrFolderEntry>;
TYPED_TEST_SUITE(LateHandle, LateElements, ElementName);

TYPED_TEST(LateHandle, ThatCannotBeMadeFailsTheStepAndTheNextOneMovesPastIt) {
    FolderListing<TypeParam> const all(
        this->filter({file(u"a.txt"), file(u""), file(u"c.txt")}, u"*.txt"));
    auto position = all.begin();
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 1U) << "as it is, with no translation";
    EXPECT_EQ(nameOf(*position), "") << "on the element that failed";
    ++position;
    EXPECT_EQ(nameOf(*position), "c.txt");
}

TYPED_TEST(LateHandle, IsKeptByTheElementThatIsShown) {
    FolderListing<TypeParam> const all(this->filter({file(u"a.txt")}, u"*.txt"));
    auto const position = all.begin();
    long const holders = this->storage.fake.use_count();
    EXPECT_EQ(locationOf(*position), "mem:/f/a.txt");
    EXPECT_EQ(this->storage.fake.use_count(), holders);
}

TEST_F(WildcardListing, ElementsThatCannotBeMadeFailTheListingTranslatedWhereTheyStandFirst) {
    tree.add(u"mem:/f", {file(u"a"), file(u""), file(u"c.txt")});
    EXPECT_EQ(codeOf([&] { at().listFileEntries(u"*.txt"); }), ErrorCode::InvalidLocation);
    EXPECT_EQ(codeOf([&] { at().listFolderEntries(u"*.txt"); }), ErrorCode::InvalidLocation);
    EXPECT_EQ(codeOf([&] { at().listAllEntries(u"*.txt"); }), ErrorCode::InvalidLocation);
    EXPECT_EQ(namesIn(at().listAll(u"*.txt")), Names{"c.txt"}) << "names alone need no handle";
}

TEST_F(WildcardListing, FailureOfTheSearchForTheFirstMatchIsTranslated) {
    for (CursorCall const call :
         {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
        tree.add(u"mem:/f", {file(u"a"), file(u"b"), file(u"c.txt")}).failOn(call, 1, 9);
        EXPECT_EQ(codeOf([&] { at().listAll(u"*.txt"); }), ErrorCode::IOError);
    }
    tree.add(u"mem:/f", {file(u"a")}).failOn(CursorCall::Clone, 1, 2);
    EXPECT_EQ(codeOf([&] { at().listAll(u"*.txt"); }), ErrorCode::PermissionDenied);
}

TEST_F(WildcardListing, FetchesNoAttributesOfAnyElementItLooksAt) {
    tree.add(u"mem:/f", {file(u"a.txt"), folder(u"b"), file(u"c.txt")});
    EXPECT_EQ(namesIn(at().listAllEntries(u"*.txt")), (Names{"a.txt", "c.txt"}));
    EXPECT_EQ(namesIn(at().listFileEntries(u"b")), Names{"b"});
    EXPECT_EQ(storage.fake->calls(),
              (std::vector<std::string>{"listAll", "hasFeature", "listFiles", "hasFeature"}));
}

TEST_F(WildcardListing, StarShowsEverything) {
    tree.add(u"mem:/f", {file(u"a"), folder(u".b")});
    EXPECT_EQ(namesIn(at().listAll(u"*")), (Names{"a", ".b"}));
}

TEST_F(WildcardListing, DotsMatchByTheRuleOfEveryOtherUnit) {
    tree.add(u"mem:/f", {file(u"a"), file(u"a."), file(u".a")});
    EXPECT_EQ(namesIn(at().listFiles(u"*.*")), (Names{"a.", ".a"}));
}

TEST_F(WildcardListing, ListEntriesAreJudgedByTheirFilenameWhereItIsEmptyToo) {
    tree.add(u"mem:/f", {folder(u"a/")});
    EXPECT_EQ(namesIn(at().listAll(u"*")), Names{"a/"});
    EXPECT_EQ(namesIn(at().listAll(u"a")), Names{});
    EXPECT_EQ(namesIn(at().listFolders(u"a")), Names{"a"});
}

TEST_F(WildcardListing, FiltersAgainWhatTheProviderNarrowedWithoutSayingSo) {
    tree.add(u"mem:/f", {file(u"b.txt")});
    EXPECT_EQ(namesIn(at().listFiles(u"*.txt")), Names{"b.txt"});
    EXPECT_EQ(namesIn(at().listFiles(u"a*")), Names{});
}

TEST_F(WildcardListing, HasItsEndMadeBeforeItLooksAtAnything) {
    auto const shared = std::make_shared<RecordedIterator::Shared>();
    shared->entries = {ListEntry(at(), u"a"), ListEntry(at(), u"b.txt")};
    FolderIteratorWildcardsImpl<ListEntry> const filtered(
        std::make_shared<RecordedIterator>(shared), u"*.txt");
    ASSERT_FALSE(shared->log.empty());
    EXPECT_EQ(shared->log.front(), "buildEndIterator");
    shared->log.clear();
    auto const clone = filtered.cloneImpl();
    EXPECT_EQ(shared->log, (std::vector<std::string>{"cloneImpl", "cloneImpl"}))
        << "the position and the end, with no search";
    EXPECT_EQ(nameOf(clone->dereference()), "b.txt");
}

TEST_F(WildcardListing, LetsGoOfItsCursors) {
    CursorScript const& script = tree.add(u"mem:/f", {file(u"a.txt"), file(u"b")});
    {
        FolderListing<ListEntry> const all = at().listAll(u"*.txt");
        EXPECT_EQ(script.alive, 2) << "the wrapped one and the filter's own";
        (void)namesIn(all);
        EXPECT_EQ(script.alive, 2);
    }
    EXPECT_EQ(script.alive, 0);
}

} // namespace
