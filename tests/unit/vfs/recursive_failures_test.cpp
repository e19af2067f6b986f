#include <foundation/storage/vfs/listing/detail/recursive_folder_listing_iterator_impl.hpp>

#include "fake_cursor.hpp"
#include "listed.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::FileOrFolderEntry;
using vfs::Folder;
using vfs::FolderListing;
using vfs::ListEntry;
using vfs::ustring;
using vfs::detail::RecursiveFolderListingIteratorImpl;

constexpr std::uint32_t passedOver[] = {2, 4}; // denied, or gone
constexpr std::uint32_t thrown[] = {0, 1, 3, 5, 6, 7, 8, 9, 10, 11, 12};

/// A walk of mem:/r, which holds the folder a, of x, y and z, and the file b.
template<class T>
class FailingWalk : public testing::Test {
  protected:
    FailingWalk() { addExample(); }

    void addExample() {
        root = &tree.add(u"mem:/r", {folder(u"a"), file(u"b")});
        inner = &tree.add(u"mem:/r/a", {file(u"x"), file(u"y"), file(u"z")});
    }
    Folder at(char16_t const* text = u"mem:/r") const {
        return Folder(AbsoluteIRI(text), storage.reference);
    }
    FolderListing<T> list(char16_t const* pattern = u"") const {
        if constexpr (std::is_same_v<T, ListEntry>) {
            return at().listAllRecursive(pattern);
        } else {
            return at().listAllEntriesRecursive(pattern);
        }
    }
    Names names() const { return namesIn(list()); }
    /// Lets the listing of mem:/r/a fail, `times` times.
    void failToOpen(std::function<void(StorageIRI const&)> thrower, int times = 1) {
        auto const listing = storage.fake->onList;
        auto const left = std::make_shared<int>(times);
        storage.fake->onList = [=, thrower = std::move(thrower)](auto const& operation,
                                                                 StorageIRI const& location,
                                                                 ustring const& filter) {
            if (location == StorageIRI(u"mem:/r/a") && (*left)-- > 0) {
                thrower(location);
            }
            return listing(operation, location, filter);
        };
    }

    FakeStorage storage;
    FakeTree tree{*storage.fake};
    CursorScript* root = nullptr;
    CursorScript* inner = nullptr;
};

using WalkElements = testing::Types<ListEntry, FileOrFolderEntry>;
TYPED_TEST_SUITE(FailingWalk, WalkElements, ElementName);

TYPED_TEST(FailingWalk, FolderThatDeniesAccessOrIsGoneIsShownAndItsContentsAreNot) {
    for (std::uint32_t const code : passedOver) {
        this->failToOpen([code](StorageIRI const& l) { fail(code, l); });
        EXPECT_EQ(this->names(), (Names{"a", "b"})) << code;
    }
}

TYPED_TEST(FailingWalk, FirstElementThatIsDeniedOrGoneLeavesTheFolderOut) {
    for (std::uint32_t const code : passedOver) {
        for (CursorCall const call :
             {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
            this->addExample();
            this->inner->failOn(call, 0, code);
            EXPECT_EQ(this->names(), (Names{"a", "b"}));
        }
    }
}

TYPED_TEST(FailingWalk, FolderThatFailsOtherwiseIsThrownAndEnteredAtTheNextStep) {
    for (std::uint32_t const code : thrown) {
        this->failToOpen([code](StorageIRI const& l) { fail(code, l); });
        FolderListing<TypeParam> const all = this->list();
        auto position = all.begin();
        EXPECT_EQ(codeOf([&] { ++position; }), translatedCode(code));
        EXPECT_EQ(namesFrom(position, all), (Names{"a", "x", "y", "z", "b"}));
    }
}

// The walk is one element ahead of what it shows, and begins its step again where it stopped.
TYPED_TEST(FailingWalk, StepThatFailsBehindAFolderShowsItsContentsAgain) {
    this->root = &this->tree.add(u"mem:/r", {folder(u"s"), file(u"y"), file(u"b")});
    this->tree.add(u"mem:/r/s", {file(u"q")});
    this->root->failOn(CursorCall::Advance, 1, 9);
    FolderListing<TypeParam> all;
    EXPECT_EQ(codeOf([&] { all = this->list(); }), ErrorCode::IOError);
    all = this->list();
    EXPECT_EQ(namesIn(all), (Names{"s", "q", "y", "b"}));

    this->root = &this->tree.add(u"mem:/r", {file(u"c"), folder(u"s"), file(u"y")});
    this->root->failOn(CursorCall::Advance, 2, 9);
    all = this->list();
    auto position = all.begin();
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::IOError);
    EXPECT_EQ(nameOf(*position), "s"); // it was fetched, and its folder failed to move on
    EXPECT_EQ(namesFrom(position, all), (Names{"s", "q", "s", "q", "y"}));
}

TYPED_TEST(FailingWalk, WhatIsNoFailureOfTheProviderPassesThroughEverywhere) {
    this->failToOpen([](StorageIRI const&) { throw 42; });
    this->inner->failOn(CursorCall::HasNext, 1, [] { throw 43; });
    this->inner->failOn(CursorCall::Advance, 1, [] { throw 44; });
    this->inner->failOn(CursorCall::CurrentEntry, 1, [] { throw std::domain_error("45"); });
    FolderListing<TypeParam> const all = this->list();
    auto position = all.begin();
    EXPECT_THROW(++position, int);
    EXPECT_THROW(++position, int);
    EXPECT_THROW(++position, int);
    EXPECT_THROW(++position, std::domain_error);
}

// The element was fetched, and not shown yet, when its folder failed to move on.
TYPED_TEST(FailingWalk, ElementBeforeTheOneThatIsDeniedOrGoneIsDroppedWithTheRest) {
    for (std::uint32_t const code : passedOver) {
        for (CursorCall const call :
             {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
            this->addExample();
            this->inner->failOn(call, 2, code);
            EXPECT_EQ(this->names(), (Names{"a", "x", "b"})) << "y is gone, and z with it";
        }
    }
    this->addExample();
    this->inner->failOn(CursorCall::Advance, 1, 2);
    EXPECT_EQ(this->names(), (Names{"a", "b"}));
}

TYPED_TEST(FailingWalk, EndThatIsDeniedOrGoneDropsTheLastElement) {
    this->inner->failOn(CursorCall::HasNext, 3, 4);
    EXPECT_EQ(this->names(), (Names{"a", "x", "y", "b"}));
    this->addExample();
    this->root->failOn(CursorCall::HasNext, 2, 4);
    EXPECT_EQ(this->names(), (Names{"a", "x", "y", "z"})) << "of the root as well";
}

TYPED_TEST(FailingWalk, EveryFailureOfALevelIsSeenTranslated) {
    for (std::uint32_t const code : thrown) {
        for (CursorCall const call :
             {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
            this->addExample();
            this->inner->failOn(call, 2, code);
            FolderListing<TypeParam> const all = this->list();
            auto position = all.begin();
            ++position;
            try {
                ++position;
                ADD_FAILURE();
            } catch (vfs::Exception const& e) {
                EXPECT_EQ(e.getErrorCode(), translatedCode(code));
                EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/named"));
            }
        }
    }
}

TYPED_TEST(FailingWalk, StepAfterAFailureToMoveOnStandsOnTheSameElementAgain) {
    this->inner->failOn(CursorCall::Advance, 2, 9);
    FolderListing<TypeParam> const all = this->list();
    auto position = all.begin();
    ++position;
    EXPECT_EQ(nameOf(*position), "x");
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::IOError);
    EXPECT_EQ(nameOf(*position), "y") << "taken before its folder failed to move on";
    EXPECT_FALSE(position == all.end());
    ++position;
    EXPECT_EQ(namesFrom(position, all), (Names{"y", "z", "b"}));
}

TYPED_TEST(FailingWalk, FailureThatLastsIsThrownEachTime) {
    this->inner->failOn(CursorCall::Advance, 2, 9, 3);
    FolderListing<TypeParam> const all = this->list();
    auto position = all.begin();
    ++position;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::IOError);
    }
    ++position;
    EXPECT_EQ(namesFrom(position, all), (Names{"y", "z", "b"}));
}

TYPED_TEST(FailingWalk, CursorThatCannotBeClonedEndsItsFolderWhereItIsDeniedOrGone) {
    for (std::uint32_t const code : passedOver) {
        this->addExample();
        FolderListing<TypeParam> const all = this->list();
        auto position = all.begin();
        ++position;
        EXPECT_EQ(nameOf(*position), "x");
        // The level stands on y, the entry behind it being number 2.
        this->inner->failOn(CursorCall::Clone, 2, code);
        ++position;
        EXPECT_EQ(nameOf(*position), "b") << "y and z are passed over";
    }
}

TYPED_TEST(FailingWalk, CursorThatCannotBeClonedIsThrownOtherwiseAndNothingMoves) {
    FolderListing<TypeParam> const all = this->list();
    auto position = all.begin();
    ++position;
    this->inner->failOn(CursorCall::Clone, 2, 9);
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::IOError) << "translated, unlike in a flat "
                                                                  "listing";
    EXPECT_EQ(nameOf(*position), "x");
    ++position;
    EXPECT_EQ(namesFrom(position, all), (Names{"y", "z", "b"}));
}

TYPED_TEST(FailingWalk, FailureOnTheWayUpLeavesTheWalkBetweenElements) {
    FolderListing<TypeParam> const all = this->list();
    auto position = all.begin();
    for (int i = 0; i < 3; ++i) {
        ++position;
    }
    EXPECT_EQ(nameOf(*position), "z");
    // The root stands on b, its last entry.
    this->root->failOn(CursorCall::Clone, 2, 9);
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::IOError);
    EXPECT_FALSE(position == all.end());
    ++position;
    EXPECT_TRUE(position == all.end()) << "the root is left without being asked again";
}

TYPED_TEST(FailingWalk, SearchThatFailsUnderAPatternGoesOnAtTheNextStep) {
    this->failToOpen([](StorageIRI const& l) { fail(9, l); }, 2);
    EXPECT_EQ(codeOf([&] { this->list(u"z"); }), ErrorCode::IOError) << "the first match";

    FolderListing<TypeParam> const all = this->list(u"a");
    auto position = all.begin();
    EXPECT_EQ(nameOf(*position), "a");
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::IOError);
    EXPECT_EQ(nameOf(*position), "a");
    ++position;
    EXPECT_TRUE(position == all.end());
}

/// A walk of names asks the provider what each element is.
class AskingWalk : public FailingWalk<ListEntry> {
  protected:
    /// Answers with one after the other, where mem:/r/a is asked about, then as the tree does.
    void answer(std::vector<std::function<provider::ExistsResult()>> answers) {
        auto const exists = storage.fake->onExists;
        auto const next = std::make_shared<std::size_t>(0);
        storage.fake->onExists = [=, answers = std::move(answers)](StorageIRI const& location) {
            return location == StorageIRI(u"mem:/r/a") && *next < answers.size()
                       ? answers[(*next)++]()
                       : exists(location);
        };
    }
    static provider::ExistsResult denied() { fail(2, StorageIRI(u"mem:/named")); }
    static provider::ExistsResult isFile() { return provider::ExistsResult::File; }
    static provider::ExistsResult isFolder() { return provider::ExistsResult::Folder; }
    static provider::ExistsResult isGone() { return provider::ExistsResult::Nothing; }
};

TEST_F(AskingWalk, FailureToTellTheKindIsThrownWhateverItIsAndNothingMoves) {
    answer({denied, denied});
    FolderListing<ListEntry> const all = list();
    auto position = all.begin();
    auto const before = position;
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::PermissionDenied)
            << "only what listing a folder throws is passed over";
        EXPECT_EQ(nameOf(*position), "a");
        EXPECT_TRUE(position == before);
    }
    EXPECT_EQ(namesFrom(position, all), (Names{"a", "x", "y", "z", "b"}));
}

TEST_F(AskingWalk, FailureToTellTheKindAgainIsThrownAndNothingMoves) {
    answer({isFolder, denied});
    FolderListing<ListEntry> const all = list();
    auto position = all.begin();
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::PermissionDenied);
    EXPECT_EQ(namesFrom(position, all), (Names{"a", "x", "y", "z", "b"}));
}

TEST_F(AskingWalk, FolderThatIsAFileOnSecondAskingIsABadGet) {
    answer({isFolder, isFile});
    FolderListing<ListEntry> const all = list();
    auto position = all.begin();
    EXPECT_THROW(++position, boost::bad_get);
    EXPECT_EQ(namesFrom(position, all), (Names{"a", "x", "y", "z", "b"}));
}

TEST_F(AskingWalk, FolderThatVanishesBetweenTheTwoIsABadGetToo) {
    answer({isFolder, isGone});
    FolderListing<ListEntry> const all = list();
    auto position = all.begin();
    EXPECT_THROW(++position, boost::bad_get);
}

TEST_F(AskingWalk, VanishedFolderIsTakenForAFileAndNotEntered) {
    answer({isGone});
    EXPECT_EQ(names(), (Names{"a", "b"}));
    EXPECT_EQ(storage.fake->calls(),
              (std::vector<std::string>{"hasFeature", "listAllNamesOnly", "exists", "exists"}));
}

TEST_F(AskingWalk, KindIsAskedOfTheStorageAndNotTakenFromTheEntry) {
    root = &tree.add(u"mem:/r", {file(u"a"), folder(u"b")});
    EXPECT_EQ(names(), (Names{"a", "x", "y", "z", "b"}));
}

/// A walk of entries takes the kind from the entry.
using TrustingWalk = FailingWalk<FileOrFolderEntry>;

TEST_F(TrustingWalk, KindIsTakenFromTheEntry) {
    root = &tree.add(u"mem:/r", {file(u"a"), file(u"b")});
    EXPECT_EQ(names(), (Names{"a", "b"}));
}

TEST_F(TrustingWalk, FolderWhoseHandleCannotBeMadeIsThrownAsItIsAndNothingMoves) {
    root = &tree.add(u"mem:/r", {folder(u""), file(u"b")});
    FolderListing<FileOrFolderEntry> const all = list();
    auto position = all.begin();
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 1U);
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 1U);
    EXPECT_EQ(nameOf(*position), "");
}

TEST_F(TrustingWalk, VanishedFolderIsPassedOver) {
    root = &tree.add(u"mem:/r", {folder(u"gone"), file(u"b")});
    EXPECT_EQ(names(), (Names{"gone", "b"}));
}

/// The implementation alone: what carries a folder, and how that compares.
template<class T>
class WalkImplementation : public FailingWalk<T> {
  protected:
    using Iterator = RecursiveFolderListingIteratorImpl<T>;
    static void exhaust(Iterator& walk, int steps) {
        for (int i = 0; i < steps; ++i) {
            walk.increment();
        }
    }
};
TYPED_TEST_SUITE(WalkImplementation, WalkElements, ElementName);

TYPED_TEST(WalkImplementation, MasterNeverEqualsItsEndAndACopyDoesWhenItHasRunThere) {
    typename TestFixture::Iterator master(this->at(), u"");
    auto const end = master.buildEndIterator();
    typename TestFixture::Iterator copy(master);
    EXPECT_FALSE(master.equal(*end));
    EXPECT_FALSE(copy.equal(*end));
    EXPECT_FALSE(end->equal(copy));
    EXPECT_FALSE(master.equal(copy)) << "although they stand at the same place";
    this->exhaust(master, 5);
    this->exhaust(copy, 5);
    EXPECT_TRUE(copy.equal(*end));
    EXPECT_TRUE(end->equal(copy));
    EXPECT_FALSE(master.equal(*end));
    EXPECT_FALSE(end->equal(master));
}

TYPED_TEST(WalkImplementation, MastersOfDifferentFoldersAreNotEqual) {
    this->tree.add(u"mem:/e", {});
    this->tree.add(u"mem:/g", {});
    using Impl = typename TestFixture::Iterator;
    EXPECT_TRUE(Impl(this->at(u"mem:/e"), u"").equal(Impl(this->at(u"mem:/%65"), u"x")));
    EXPECT_FALSE(Impl(this->at(u"mem:/e"), u"").equal(Impl(this->at(u"mem:/g"), u"")));
    EXPECT_FALSE(Impl(this->at(), u"").equal(Impl(this->at(), u""))) << "elements of their own";
}

TYPED_TEST(WalkImplementation, AssignmentTakesTheWalkAndLeavesTheFolder) {
    using Impl = typename TestFixture::Iterator;
    this->tree.add(u"mem:/e", {});
    Impl const source(this->at(), u"");
    Impl target(u"");
    target = source;
    EXPECT_TRUE(target.equal(Impl(source))) << "neither has a folder";
    EXPECT_EQ(nameOf(target.dereference()), "a");
    target.increment();
    EXPECT_EQ(nameOf(target.dereference()), "x");
    EXPECT_EQ(nameOf(source.dereference()), "a");

    Impl master(this->at(u"mem:/e"), u"");
    master = source;
    EXPECT_EQ(nameOf(master.dereference()), "a");
    EXPECT_FALSE(master.equal(Impl(source))) << "it has the folder that it had";
    EXPECT_FALSE(master.equal(source)) << "which is another one";
}

TYPED_TEST(WalkImplementation, EndsAreEqualWhateverTheirPattern) {
    using Impl = typename TestFixture::Iterator;
    EXPECT_TRUE(Impl(u"a").equal(Impl(u"b")));
    Impl const master(this->at(), u"");
    EXPECT_TRUE(master.buildEndIterator()->equal(Impl(u"x")));
    EXPECT_TRUE(Impl(u"x").equal(*Impl(u"y").cloneImpl()));
}

TYPED_TEST(WalkImplementation, ComparesTheInnermostPositionAlone) {
    using Impl = typename TestFixture::Iterator;
    Impl const master(this->at(), u"");
    Impl walk(master);
    Impl const before(walk);
    walk.increment();
    Impl inside(walk);
    EXPECT_FALSE(walk.equal(before));
    // Both have shown the last of a, and their innermost level is at the end of a.
    this->exhaust(walk, 2);
    this->exhaust(inside, 2);
    EXPECT_EQ(nameOf(walk.dereference()), "z");
    EXPECT_NE(&walk.dereference(), &inside.dereference());
    EXPECT_TRUE(walk.equal(inside)) << "at the end of one folder, whatever they show";
}

TYPED_TEST(WalkImplementation, PatternChangesNothingOfWhatIsWalked) {
    using Impl = typename TestFixture::Iterator;
    EXPECT_EQ(namesIn(FolderListing<TypeParam>(std::make_shared<Impl>(this->at(), u"nothing"))),
              (Names{"a", "x", "y", "z", "b"}));
}

TYPED_TEST(WalkImplementation, KeepsNoFolderOpenAtTheEnd) {
    {
        typename TestFixture::Iterator walk(this->at(), u"");
        EXPECT_EQ(this->tree.alive(), 2);
        this->exhaust(walk, 1);
        EXPECT_EQ(this->tree.alive(), 4);
        this->exhaust(walk, 4);
        EXPECT_EQ(this->tree.alive(), 0);
        walk.increment();
        EXPECT_FALSE(walk.equal(*walk.buildEndIterator())) << "the end stays the end";
    }
    this->tree.add(u"mem:/e", {});
    typename TestFixture::Iterator const none(this->at(u"mem:/e"), u"");
    EXPECT_EQ(this->tree.alive(), 0);
}

} // namespace
