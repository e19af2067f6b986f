#include <foundation/storage/vfs/listing/folder_listing.hpp>

#include <foundation/storage/vfs/listing/detail/folder_listing_iterator_impl.hpp>

#include "fake_cursor.hpp"
#include "listed.hpp"

#include <gtest/gtest.h>

#include <concepts>
#include <iterator>
#include <optional>
#include <ranges>
#include <type_traits>

namespace {

using namespace vfs_test;
using provider::ExtendedFeature;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::File;
using vfs::FileEntry;
using vfs::FileOrFolder;
using vfs::FileOrFolderEntry;
using vfs::Folder;
using vfs::FolderEntry;
using vfs::FolderListing;
using vfs::FolderListingIterator;
using vfs::ListEntry;
using vfs::ustring;
using vfs::detail::FolderListingIteratorImpl;
using Log = std::vector<std::string>;

// Whatever the element, an iterator is an input iterator of its own listing.
template<class T>
constexpr bool fitsTheStandardLibrary = std::input_iterator<FolderListingIterator<T>>&&
    std::sentinel_for<FolderListingIterator<T>, FolderListingIterator<T>>&&
        std::ranges::input_range<FolderListing<T> const>&&
            std::same_as<typename std::iterator_traits<FolderListingIterator<T>>::iterator_category,
                         std::input_iterator_tag>&&
                std::same_as<std::iter_value_t<FolderListingIterator<T>>, T>&&
                    std::same_as<std::iter_reference_t<FolderListingIterator<T>>, T const&>&&
                        std::is_default_constructible_v<FolderListing<T>>&&
                            std::copyable<FolderListing<T>>&&
                                std::is_default_constructible_v<FolderListingIterator<T>>;
static_assert(fitsTheStandardLibrary<File> && fitsTheStandardLibrary<Folder> &&
              fitsTheStandardLibrary<FileOrFolder> && fitsTheStandardLibrary<FileEntry> &&
              fitsTheStandardLibrary<FolderEntry> && fitsTheStandardLibrary<FileOrFolderEntry> &&
              fitsTheStandardLibrary<ListEntry>);

class FolderListingTest : public testing::Test {
  protected:
    Folder at(char16_t const* text = u"mem:/f") const {
        return Folder(AbsoluteIRI(text), storage.reference);
    }
    /// A cursor, as a listing of mem:/f gives it.
    static std::unique_ptr<provider::IFolderEntryIterator>
    cursor(std::vector<provider::FolderEntry> entries) {
        return std::make_unique<FakeCursor>(std::make_shared<CursorScript>(std::move(entries)));
    }
    void offer(ExtendedFeature offered) {
        storage.fake->onHasFeature = [offered](ExtendedFeature asked) { return asked == offered; };
    }

    FakeStorage storage;
    FakeTree tree{*storage.fake};
};

/// The flat operations, and what each asks of the provider.
struct Operation {
    char const* name;
    char const* asks;
    Names (*list)(Folder const&, ustring);
};
void PrintTo(Operation const& operation, std::ostream* out) {
    *out << operation.name;
}

class FlatListing : public FolderListingTest, public testing::WithParamInterface<Operation> {
  protected:
    std::string asks(char const* rest) const { return GetParam().asks + std::string(rest); }
};

INSTANTIATE_TEST_SUITE_P(
    All, FlatListing,
    testing::Values(
        Operation{"listFiles", "listFilesNamesOnly",
                  [](Folder const& f, ustring p) { return namesIn<File>(f.listFiles(p)); }},
        Operation{"listFolders", "listFoldersNamesOnly",
                  [](Folder const& f, ustring p) { return namesIn<Folder>(f.listFolders(p)); }},
        Operation{"listAll", "listAllNamesOnly",
                  [](Folder const& f, ustring p) { return namesIn<ListEntry>(f.listAll(p)); }},
        Operation{
            "listFileEntries", "listFiles",
            [](Folder const& f, ustring p) { return namesIn<FileEntry>(f.listFileEntries(p)); }},
        Operation{"listFolderEntries", "listFolders",
                  [](Folder const& f, ustring p) {
                      return namesIn<FolderEntry>(f.listFolderEntries(p));
                  }},
        Operation{"listAllEntries", "listAll",
                  [](Folder const& f, ustring p) {
                      return namesIn<FileOrFolderEntry>(f.listAllEntries(p));
                  }}),
    [](auto const& instance) { return instance.param.name; });

TEST_P(FlatListing, AsksForNoMoreThanItsElementsCarry) {
    tree.add(u"mem:/f", {file(u"a"), folder(u"b")});
    EXPECT_EQ(GetParam().list(at(), u""), (Names{"a", "b"}));
    EXPECT_EQ(storage.fake->log(), Log{asks(" mem:/f <>")});
}

TEST_P(FlatListing, HandsThePatternOnAndFiltersItself) {
    tree.add(u"mem:/f", {file(u"a.txt"), folder(u"b"), file(u"c.txt")});
    EXPECT_EQ(GetParam().list(at(), u"*.txt"), (Names{"a.txt", "c.txt"}));
    EXPECT_EQ(storage.fake->log(), (Log{asks(" mem:/f <*.txt>"), "hasFeature mem:/f 2"}))
        << "the feature is asked about once the provider's listing is there";
}

TEST_P(FlatListing, BelievesAProviderThatFilters) {
    offer(ExtendedFeature::FlatWildcardListing);
    tree.add(u"mem:/f", {file(u"a.txt"), folder(u"b")});
    EXPECT_EQ(GetParam().list(at(), u"*.txt"), (Names{"a.txt", "b"}));
    EXPECT_EQ(storage.fake->log(), (Log{asks(" mem:/f <*.txt>"), "hasFeature mem:/f 2"}));
}

TEST_P(FlatListing, OtherFeaturesDoNotStandInForFiltering) {
    storage.fake->onHasFeature = [](ExtendedFeature asked) {
        return asked != ExtendedFeature::FlatWildcardListing;
    };
    tree.add(u"mem:/f", {file(u"a.txt"), folder(u"b")});
    EXPECT_EQ(GetParam().list(at(), u"*.txt"), Names{"a.txt"});
}

TEST_P(FlatListing, MissingFolderFailsAtOnce) {
    EXPECT_EQ(codeOf([this] { GetParam().list(at(), u""); }), ErrorCode::ResourceNotFound);
}

TEST_P(FlatListing, FailureOfTheListingCallIsTranslatedWithTheLocationThatItNames) {
    storage.fake->onList = [](auto const&, StorageIRI const&,
                              ustring const&) -> std::unique_ptr<provider::IFolderEntryIterator> {
        fail(2, StorageIRI(u"mem:/named"));
    };
    try {
        GetParam().list(at(), u"*");
        FAIL();
    } catch (vfs::Exception const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::PermissionDenied);
        EXPECT_EQ(e.getLocation(), AbsoluteIRI(u"mem:/named"));
    }
    EXPECT_EQ(storage.fake->calls().size(), 1U) << "no feature is asked about any more";
}

TEST_P(FlatListing, FailureToTellTheFeatureIsTranslated) {
    tree.add(u"mem:/f", {});
    storage.fake->onHasFeature = [](ExtendedFeature) -> bool { fail(9, StorageIRI(u"mem:/x")); };
    EXPECT_EQ(codeOf([this] { GetParam().list(at(), u"*"); }), ErrorCode::IOError);
    EXPECT_EQ(GetParam().list(at(), u""), Names{}) << "which is not asked without a pattern";
}

TEST_P(FlatListing, FailureOfTheFirstElementIsTranslated) {
    for (CursorCall const call :
         {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
        tree.add(u"mem:/f", {file(u"a")}).failOn(call, 0, 6);
        EXPECT_EQ(codeOf([this] { GetParam().list(at(), u""); }), ErrorCode::ResourceInUse);
    }
}

TEST_P(FlatListing, WhatIsNoFailureOfTheProviderPassesThrough) {
    tree.add(u"mem:/f", {file(u"a")}).failOn(CursorCall::Advance, 0, [] {
        throw std::domain_error("mine");
    });
    EXPECT_THROW(GetParam().list(at(), u""), std::domain_error);
}

TEST_P(FlatListing, ProviderThatGivesNoCursorIsDefective) {
    storage.fake->onList = [](auto const&, auto const&, auto const&) { return nullptr; };
    EXPECT_EQ(codeOf([this] { GetParam().list(at(), u""); }), ErrorCode::InternalError);
}

TEST_F(FolderListingTest, FirstElementThatCannotBeMadeFailsTheListingTranslated) {
    tree.add(u"mem:/f", {file(u"")});
    EXPECT_EQ(codeOf([this] { at().listFiles(); }), ErrorCode::InvalidLocation);
    EXPECT_EQ(codeOf([this] { at().listFolders(); }), ErrorCode::InvalidLocation);
    EXPECT_EQ(namesIn(at().listFileEntries()), Names{""}) << "an entry makes no handle";
}

/// What a listing of one type is made of, and what it does, for every type of element.
template<class T>
class Listing : public FolderListingTest {
  protected:
    FolderListing<T> listing(std::vector<provider::FolderEntry> entries) const {
        return FolderListing<T>(
            std::make_shared<FolderListingIteratorImpl<T>>(at(), cursor(std::move(entries))));
    }
};

TYPED_TEST_SUITE(Listing, Elements, ElementName);

TYPED_TEST(Listing, MakesItsElementsOfTheEntriesInTheirOrder) {
    FolderListing<TypeParam> const all = this->listing({file(u"b"), folder(u"a"), file(u"c d")});
    EXPECT_FALSE(all.empty());
    EXPECT_EQ(namesIn(all), (Names{"b", "a", "c d"}));
    EXPECT_EQ(locationsIn(all), (Names{"mem:/f/b", "mem:/f/a", "mem:/f/c d"}));
    EXPECT_TRUE(this->storage.fake->calls().empty());
}

TYPED_TEST(Listing, OfNothingIsEmpty) {
    FolderListing<TypeParam> const none = this->listing({});
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(none.begin() == none.end());
}

TYPED_TEST(Listing, MadeByDefaultIsEmptyAndNeedsNoFolder) {
    FolderListing<TypeParam> const none;
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(none.begin() == none.end());
    FolderListing<TypeParam> const copy = none;
    EXPECT_TRUE(copy.empty());
    for (TypeParam const& element : none) {
        ADD_FAILURE() << nameOf(element);
    }
}

TYPED_TEST(Listing, MayBeDeclaredFirstAndAssignedLater) {
    FolderListing<TypeParam> later;
    FolderListingIterator<TypeParam> position;
    later = this->listing({file(u"a"), file(u"b")});
    position = later.begin();
    EXPECT_EQ(nameOf(*position), "a");
    EXPECT_EQ(namesFrom(position, later), (Names{"a", "b"}));
}

TYPED_TEST(Listing, IteratorsThatBelongToNothingEqualEachOtherAlone) {
    FolderListing<TypeParam> const some = this->listing({file(u"a")});
    FolderListingIterator<TypeParam> const nowhere;
    EXPECT_TRUE(nowhere == FolderListingIterator<TypeParam>());
    EXPECT_FALSE(nowhere == some.begin());
    EXPECT_FALSE(nowhere == some.end());
    EXPECT_FALSE(some.begin() == nowhere);
    EXPECT_FALSE(some.end() == nowhere);
}

TYPED_TEST(Listing, CopyOfAnIteratorOfNothingIsNoLongerOneWhileAnAssignedOneIs) {
    FolderListingIterator<TypeParam> const nowhere;
    FolderListingIterator<TypeParam> const copy(nowhere);
    FolderListing<TypeParam> const some = this->listing({file(u"a")});
    FolderListingIterator<TypeParam> assigned = some.begin();
    assigned = nowhere;
    EXPECT_TRUE(assigned == nowhere);
    EXPECT_FALSE(copy == nowhere);
    EXPECT_FALSE(nowhere == copy);
    EXPECT_TRUE(copy == FolderListingIterator<TypeParam>(nowhere)) << "both at the end of nothing";
    EXPECT_FALSE(copy == some.end()) << "an end of nothing is not that of a folder";
    assigned = some.end();
    EXPECT_TRUE(assigned == some.end()) << "and takes the other state over as well";
}

TYPED_TEST(Listing, IteratorsAreEqualWhileTheyShareTheirElement) {
    FolderListing<TypeParam> const all = this->listing({file(u"a"), file(u"b")});
    auto one = all.begin();
    auto two = all.begin();
    EXPECT_TRUE(one == two);
    EXPECT_EQ(&*one, &*two);
    ++one;
    EXPECT_TRUE(one != two);
    ++two;
    EXPECT_EQ(nameOf(*one), nameOf(*two));
    EXPECT_FALSE(one == two) << "the same entry, and not the same element";
    ++one;
    EXPECT_FALSE(one == two);
    ++two;
    EXPECT_TRUE(one == two) << "both at the end";
    EXPECT_TRUE(one == all.end());
}

TYPED_TEST(Listing, CopiesShareTheirElementAndNeverTheirPosition) {
    FolderListing<TypeParam> const all = this->listing({file(u"a"), file(u"b"), file(u"c")});
    auto source = all.begin();
    ++source;
    auto copy = source;
    EXPECT_TRUE(copy == source);
    TypeParam const& kept = *copy;
    ++source;
    EXPECT_EQ(nameOf(*source), "c");
    EXPECT_EQ(nameOf(*copy), "b");
    EXPECT_EQ(&*copy, &kept) << "the element lives as long as one iterator stands on it";
    EXPECT_EQ(namesFrom(copy, all), (Names{"b", "c"}));
    EXPECT_EQ(nameOf(*source), "c");
    copy = source;
    ++copy;
    EXPECT_TRUE(copy == all.end());
    EXPECT_EQ(nameOf(*source), "c");
}

TYPED_TEST(Listing, PostIncrementGivesThePlaceBefore) {
    FolderListing<TypeParam> const all = this->listing({file(u"a"), file(u"b")});
    auto position = all.begin();
    auto const before = position++;
    EXPECT_EQ(nameOf(*before), "a");
    EXPECT_EQ(nameOf(*position), "b");
    EXPECT_EQ(position.operator->(), &*position);
}

TYPED_TEST(Listing, IteratorsAndElementsOutliveIt) {
    std::optional<FolderListing<TypeParam>> all = this->listing({file(u"a"), file(u"b")});
    auto position = all->begin();
    TypeParam const first = *position;
    all.reset();
    ++position;
    EXPECT_EQ(nameOf(*position), "b");
    EXPECT_EQ(nameOf(first), "a");
}

TEST_F(FolderListingTest, CallsTheCursorOnceForEachStep) {
    CursorScript const& script = tree.add(u"mem:/f", {file(u"a"), file(u"b")});
    auto const expectCounts = [&](int hasNext, int moved) {
        EXPECT_EQ(script.count(CursorCall::HasNext), hasNext);
        EXPECT_EQ(script.count(CursorCall::Advance), moved);
        EXPECT_EQ(script.count(CursorCall::CurrentEntry), moved);
    };
    FolderListing<File> const all = at().listFiles();
    expectCounts(1, 1);
    auto position = all.begin();
    (void)*position;
    EXPECT_FALSE(all.empty());
    expectCounts(1, 1);
    ++position;
    expectCounts(2, 2);
    ++position;
    expectCounts(3, 2);
    ++position;
    expectCounts(4, 2);
    EXPECT_TRUE(position == all.end()) << "the end is asked again, and stays the end";
}

TEST_F(FolderListingTest, AsksAnEmptyFolderOnce) {
    CursorScript const& script = tree.add(u"mem:/f", {});
    FolderListing<ListEntry> const none = at().listAll();
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(none.begin() == none.end());
    EXPECT_EQ(script.count(CursorCall::HasNext), 1);
    EXPECT_EQ(script.count(CursorCall::Advance), 0);
}

TEST_F(FolderListingTest, IteratorAtTheEndGoesOnWhereTheCursorDoes) {
    CursorScript& script = tree.add(u"mem:/f", {file(u"a")});
    FolderListing<File> const all = at().listFiles();
    auto position = all.begin();
    ++position;
    ASSERT_TRUE(position == all.end());
    script.entries.push_back(file(u"late"));
    ++position;
    EXPECT_EQ(nameOf(*position), "late");
}

TEST_F(FolderListingTest, ListsTheFolderOnceForAnyNumberOfTraversals) {
    CursorScript const& script = tree.add(u"mem:/f", {file(u"a"), file(u"b")});
    FolderListing<File> const all = at().listFiles();
    EXPECT_EQ(namesIn(all), (Names{"a", "b"}));
    EXPECT_EQ(namesIn(all), (Names{"a", "b"}));
    auto one = all.begin();
    auto two = all.begin();
    ++one;
    EXPECT_EQ(namesFrom(two, all), (Names{"a", "b"}));
    EXPECT_EQ(namesFrom(one, all), Names{"b"});
    EXPECT_EQ(storage.fake->calls(), Log{"listFilesNamesOnly"});
    EXPECT_EQ(script.alive, 3) << "the listing's cursor and those of the two iterators";
}

TEST_F(FolderListingTest, ClonesTheCursorForABeginAndNothingElse) {
    CursorScript const& script = tree.add(u"mem:/f", {file(u"a")});
    {
        FolderListing<File> const all = at().listFiles();
        EXPECT_EQ(script.count(CursorCall::Clone), 0);
        (void)all.end();
        (void)all.empty();
        EXPECT_EQ(script.count(CursorCall::Clone), 0) << "an end has no cursor";
        auto const position = all.begin();
        EXPECT_EQ(script.count(CursorCall::Clone), 1);
        (void)(position == all.end());
        (void)*position;
        EXPECT_EQ(script.count(CursorCall::Clone), 1);
        FolderListing<File> const copy = all;
        EXPECT_EQ(script.count(CursorCall::Clone), 2);
        EXPECT_EQ(script.alive, 3);
    }
    EXPECT_EQ(script.alive, 0);
}

TEST_F(FolderListingTest, HoldsOneElementAtATime) {
    tree.add(u"mem:/f", {file(u"a"), file(u"b"), file(u"c")});
    FolderListing<File> const all = at().listFiles();
    auto position = all.begin();
    ++position;
    long const holders = storage.fake.use_count();
    ++position;
    EXPECT_EQ(storage.fake.use_count(), holders) << "an element holds the provider while it lives";
    ++position;
    EXPECT_EQ(storage.fake.use_count(), holders - 1);
}

TEST_F(FolderListingTest, EndsAreEqualWhereTheirFoldersAre) {
    tree.add(u"mem:/f", {});
    tree.add(u"mem:/g", {});
    FolderListing<File> const one = at().listFiles();
    FolderListing<File> const again = at(u"mem:/%66/").listFiles();
    FolderListing<File> const other = at(u"mem:/g").listFiles();
    EXPECT_TRUE(one.end() == again.end());
    EXPECT_TRUE(one.begin() == again.end()) << "an exhausted iterator is an end as well";
    EXPECT_FALSE(one.end() == other.end());
    EXPECT_FALSE(one.begin() == other.end());
}

TEST_F(FolderListingTest, KeepsDeliveredAttributes) {
    tree.add(u"mem:/f", {fileOfSize(u"a", 5), folderOfSize(u"b", 6)});
    EXPECT_EQ((*at().listFileEntries().begin()).getAttributes().values().size, 5U);
    FolderListing<FileOrFolderEntry> const all = at().listAllEntries();
    auto position = all.begin();
    EXPECT_EQ(boost::get<FileEntry>(*position).getAttributes().values().size, 5U);
    ++position;
    EXPECT_EQ(boost::get<FolderEntry>(*position).getAttributes().values().size, 6U);
    FolderListing<FolderEntry> const folders = at().listFolderEntries();
    auto folderPosition = folders.begin();
    ++folderPosition;
    EXPECT_EQ(folderPosition->getAttributes().values().size, 6U);
    EXPECT_EQ(storage.fake->calls(), (Log{"listFiles", "listAll", "listFolders"}));
}

TEST_F(FolderListingTest, LeavesAttributesThatDidNotComeToWhoeverAsks) {
    tree.add(u"mem:/f", {file(u"a"), folder(u"b")});
    storage.fake->onGetFileAttributes = [](StorageIRI const&) {
        return provider::FileAttributes(values(7));
    };
    storage.fake->onGetFolderAttributes = [](StorageIRI const&) {
        return provider::FolderAttributes(values(8));
    };
    FolderListing<FileOrFolderEntry> const all = at().listAllEntries();
    auto position = all.begin();
    FileEntry const asked = boost::get<FileEntry>(*position);
    ++position;
    FolderEntry const folderAsked = boost::get<FolderEntry>(*position);
    EXPECT_EQ(storage.fake->calls(), Log{"listAll"});
    EXPECT_EQ(asked.getAttributes().values().size, 7U);
    EXPECT_EQ(folderAsked.getAttributes().values().size, 8U);
    EXPECT_EQ(asked.getAttributes().values().size, 7U);
    EXPECT_EQ(storage.fake->log(), (Log{"listAll mem:/f <>", "getFileAttributes mem:/f/a",
                                        "getFolderAttributes mem:/f/b"}));
}

TEST_F(FolderListingTest, TellsKindsApartByTheEntryWhereTheElementIsOfEither) {
    FolderListing<FileOrFolder> const all(std::make_shared<FolderListingIteratorImpl<FileOrFolder>>(
        at(), cursor({file(u"a"), folder(u"b"), folderOfSize(u"c", 1), fileOfSize(u"d", 2)})));
    std::vector<int> kinds;
    for (FileOrFolder const& item : all) {
        kinds.push_back(item.which());
    }
    EXPECT_EQ(kinds, (std::vector<int>{0, 1, 1, 0}));

    tree.add(u"mem:/f", {file(u"a"), folder(u"b"), folderOfSize(u"c", 1), fileOfSize(u"d", 2)});
    kinds.clear();
    for (FileOrFolderEntry const& entry : at().listAllEntries()) {
        kinds.push_back(entry.which());
    }
    EXPECT_EQ(kinds, (std::vector<int>{0, 1, 1, 0}));
}

TEST_F(FolderListingTest, BelievesTheProviderThatFilesAreFilesAndFoldersFolders) {
    tree.add(u"mem:/f", {folderOfSize(u"a", 1), fileOfSize(u"b", 2)});
    EXPECT_EQ(namesIn(at().listFiles()), (Names{"a", "b"}));
    EXPECT_EQ(namesIn(at().listFolders()), (Names{"a", "b"}));
    storage.fake->onGetFileAttributes = [](StorageIRI const&) {
        return provider::FileAttributes(values(7));
    };
    EXPECT_EQ((*at().listFileEntries().begin()).getAttributes().values().size, 7U)
        << "what came for a folder is not taken for a file's";
}

TEST_F(FolderListingTest, MakesNoHandleForAnEntry) {
    tree.add(u"mem:/f", {file(u"a"), file(u"b"), file(u"c")});
    Folder const kept = at();
    FolderListing<FileOrFolderEntry> const all = kept.listAllEntries();
    long const holders = storage.fake.use_count();
    std::vector<FileOrFolderEntry> const entries(all.begin(), all.end());
    EXPECT_EQ(entries.size(), 3U);
    EXPECT_EQ(storage.fake.use_count(), holders);
}

} // namespace
