#include <foundation/storage/vfs/listing/folder_listing.hpp>

#include <foundation/storage/vfs/listing/detail/folder_listing_iterator_impl.hpp>

#include "fake_cursor.hpp"
#include "listed.hpp"
#include "recorded_iterator.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::Folder;
using vfs::FolderListing;
using vfs::FolderListingIterator;
using vfs::ListEntry;
using vfs::detail::FolderListingIteratorImpl;
using Log = std::vector<std::string>;

/// The facade alone, over an implementation that records what it is asked.
class Facade : public testing::Test {
  protected:
    Facade() { shared->entries = {ListEntry(at(), u"a"), ListEntry(at(), u"b")}; }
    /// What was asked since the last time.
    Log asked() { return std::exchange(shared->log, {}); }

    Folder at() const { return Folder(AbsoluteIRI(u"mem:/f"), storage.reference); }

    FakeStorage storage;
    std::shared_ptr<RecordedIterator::Shared> shared = std::make_shared<RecordedIterator::Shared>();
    std::shared_ptr<RecordedIterator> impl = std::make_shared<RecordedIterator>(shared);
};

TEST_F(Facade, ListingTakesTheImplementationAndHasItsEndMade) {
    FolderListing<ListEntry> const all(impl);
    EXPECT_EQ(asked(), Log{"buildEndIterator"});
    EXPECT_EQ(impl.use_count(), 2) << "itself, not a clone";
}

TEST_F(Facade, BeginAndEndCloneOnceAndEmptyDoesNot) {
    FolderListing<ListEntry> const all(impl);
    asked();
    (void)all.begin();
    EXPECT_EQ(asked(), Log{"cloneImpl"});
    (void)all.end();
    EXPECT_EQ(asked(), Log{"cloneImpl"});
    EXPECT_FALSE(all.empty());
    EXPECT_EQ(asked(), Log{"equal"});
    impl->increment();
    impl->increment();
    EXPECT_TRUE(all.empty()) << "the very implementation is compared";
}

TEST_F(Facade, CopiesOfAListingCloneBothOfItsIterators) {
    FolderListing<ListEntry> const all(impl);
    asked();
    FolderListing<ListEntry> copy(all);
    EXPECT_EQ(asked(), (Log{"cloneImpl", "cloneImpl"}));
    copy = all;
    EXPECT_EQ(asked(), (Log{"cloneImpl", "cloneImpl"}));
    EXPECT_EQ(namesIn(copy), (Names{"a", "b"}));
}

TEST_F(Facade, IteratorSharesTheImplementationItIsMadeOf) {
    FolderListingIterator<ListEntry> position(impl);
    EXPECT_EQ(asked(), Log{});
    ++position;
    EXPECT_EQ(impl->at(), 1U);
    EXPECT_EQ(nameOf(*position), "b");
    EXPECT_EQ(asked(), (Log{"increment", "dereference"}));
    FolderListingIterator<ListEntry> const copy(position);
    EXPECT_EQ(asked(), Log{"cloneImpl"});
    EXPECT_TRUE(copy == position);
    EXPECT_EQ(asked(), Log{"equal"});
    position = copy;
    EXPECT_EQ(asked(), Log{"cloneImpl"});
    ++position;
    EXPECT_EQ(impl->at(), 1U) << "an assigned iterator has left it";
}

TEST_F(Facade, ComparisonWithAnIteratorOfNothingAsksNoImplementation) {
    FolderListingIterator<ListEntry> const position(impl);
    EXPECT_FALSE(position == FolderListingIterator<ListEntry>());
    EXPECT_FALSE(FolderListingIterator<ListEntry>() == position);
    EXPECT_EQ(asked(), Log{});
}

/// The plain implementation alone.
TEST_F(Facade, AssignmentOfThePlainImplementationTakesOverFolderCursorAndElement) {
    using Impl = FolderListingIteratorImpl<ListEntry>;
    Impl source(at(), std::make_unique<FakeCursor>(std::make_shared<CursorScript>(
                          std::vector<provider::FolderEntry>{file(u"a"), file(u"b")})));
    Impl target;
    target = source;
    EXPECT_TRUE(target.equal(source));
    EXPECT_EQ(&target.dereference(), &source.dereference());
    target.increment();
    EXPECT_EQ(nameOf(target.dereference()), "b");
    EXPECT_EQ(nameOf(source.dereference()), "a");
    target = source;
    source.increment();
    EXPECT_EQ(nameOf(source.dereference()), "b");
    EXPECT_EQ(nameOf(target.dereference()), "a") << "whichever of the two moves";
    target = Impl(at());
    EXPECT_TRUE(target.equal(*source.buildEndIterator()));
    target = Impl();
    EXPECT_TRUE(target.equal(Impl()));
    EXPECT_FALSE(target.equal(Impl(at()))) << "one has a folder, and one has none";
    EXPECT_FALSE(Impl(at()).equal(target));
}

} // namespace
