#include <foundation/storage/vfs/walking/detail/entry_feed.hpp>

#include "fake_cursor.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using namespace vfs_test;
using vfs::FileOrFolderEntry;
using vfs::detail::EntryFeed;

class EntryFeedTest : public testing::Test {
  protected:
    CursorScript& add(std::size_t count) {
        std::vector<provider::FolderEntry> entries;
        for (std::size_t i = 0; i < count; ++i) {
            entries.push_back(file(fl::i18n::to_ustring(std::to_string(i)).c_str()));
        }
        return tree.add(u"mem:/f", std::move(entries));
    }
    vfs::FolderListing<FileOrFolderEntry> listing() const {
        return vfs::Folder(vfs::AbsoluteIRI(u"mem:/f"), storage.reference).listAllEntries();
    }
    static std::string nameOf(FileOrFolderEntry const& entry) {
        return fl::i18n::toDisplayString(getName(entry));
    }

    FakeStorage storage;
    FakeTree tree{*storage.fake};
};

TEST_F(EntryFeedTest, OfNothingIsAtItsEnd) {
    add(0);
    EntryFeed feed(listing());
    EXPECT_TRUE(feed.begin() == feed.end());
}

TEST_F(EntryFeedTest, GivesEachEntryOnceAndInOrder) {
    add(3);
    EntryFeed feed(listing());
    std::vector<std::string> names;
    for (auto position = feed.begin(); !(position == feed.end()); ++position) {
        names.push_back(nameOf(feed.take(*position)));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"0", "1", "2"}));
}

TEST_F(EntryFeedTest, UsesASlotAgainOnceItsEntryIsTaken) {
    add(10'000);
    EntryFeed feed(listing());
    std::set<EntryFeed::Slot*> slots;
    for (auto position = feed.begin(); !(position == feed.end()); ++position) {
        slots.insert(*position);
        feed.take(*position);
    }
    EXPECT_EQ(slots.size(), 1U);
}

TEST_F(EntryFeedTest, HoldsAsManySlotsAsEntriesThatWait) {
    add(100);
    EntryFeed feed(listing());
    std::vector<EntryFeed::Slot*> waiting;
    std::set<EntryFeed::Slot*> slots;
    for (auto position = feed.begin(); !(position == feed.end()); ++position) {
        slots.insert(*position);
        waiting.push_back(*position);
        if (waiting.size() == 4) {
            for (EntryFeed::Slot* slot : waiting) {
                feed.take(slot);
            }
            waiting.clear();
        }
    }
    EXPECT_EQ(slots.size(), 4U);
}

TEST_F(EntryFeedTest, EndsBehindAFailureWithOneNullSlotAndAsksForNothingMore) {
    CursorScript& script = add(5);
    script.failOn(CursorCall::Advance, 2, 9);
    {
        EntryFeed feed(listing());
        auto position = feed.begin();
        EXPECT_EQ(nameOf(feed.take(*position)), "0");
        ++position;
        EXPECT_EQ(nameOf(feed.take(*position)), "1");
        ++position;
        int const asked = script.count(CursorCall::Advance);
        ASSERT_FALSE(position == feed.end());
        EXPECT_EQ(*position, nullptr);
        EXPECT_EQ(codeOf([&] { feed.take(*position); }), vfs::ErrorCode::IOError);
        ++position;
        EXPECT_TRUE(position == feed.end());
        EXPECT_EQ(script.count(CursorCall::Advance), asked);
    }
    EXPECT_EQ(tree.alive(), 0);
}

TEST_F(EntryFeedTest, LetsGoOfWhatNobodyTook) {
    add(5);
    {
        EntryFeed feed(listing());
        auto position = feed.begin();
        ++position;
        ++position;
    }
    EXPECT_EQ(tree.alive(), 0);
}

} // namespace
