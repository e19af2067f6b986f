#include <foundation/storage/vfs/listing/folder_listing.hpp>

#include "fake_cursor.hpp"
#include "listed.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::File;
using vfs::Folder;
using vfs::FolderListing;
using vfs::FolderListingIterator;
using vfs::ListEntry;

/// An iterator that stands on the first of three entries, of which the second fails.
class FailingStep : public testing::Test {
  protected:
    Folder at() const { return Folder(AbsoluteIRI(u"mem:/f"), storage.reference); }
    FolderListingIterator<ListEntry> failing(CursorCall call, std::uint32_t code) {
        tree.add(u"mem:/f", {file(u"a"), file(u"b"), file(u"c")}).failOn(call, 1, code);
        listing = at().listAll();
        return listing.begin();
    }

    FakeStorage storage;
    FakeTree tree{*storage.fake};
    FolderListing<ListEntry> listing;
};

TEST_F(FailingStep, OfAdvanceIsTranslated) {
    auto position = failing(CursorCall::Advance, 9);
    EXPECT_EQ(codeOf([&] { ++position; }), ErrorCode::IOError);
    EXPECT_EQ(namesFrom(position, listing), (Names{"a", "b", "c"}));
}

TEST_F(FailingStep, OfHasNextComesOutAsItIs) {
    auto position = failing(CursorCall::HasNext, 9);
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 9U);
    EXPECT_EQ(namesFrom(position, listing), (Names{"a", "b", "c"}));
}

TEST_F(FailingStep, OfTheEntryComesOutAsItIs) {
    auto position = failing(CursorCall::CurrentEntry, 9);
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 9U);
    EXPECT_EQ(namesFrom(position, listing), (Names{"a", "c"})) << "the cursor has gone on";
}

TEST_F(FailingStep, ToMakeTheElementComesOutAsItIs) {
    tree.add(u"mem:/f", {file(u"a"), file(u""), file(u"c")});
    FolderListing<File> const files = at().listFiles();
    auto position = files.begin();
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 1U);
    EXPECT_EQ(namesFrom(position, files), (Names{"a", "c"}));
}

TEST_F(FailingStep, WhatIsNoFailureOfTheProviderPassesThrough) {
    for (CursorCall const call :
         {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
        tree.add(u"mem:/f", {file(u"a"), file(u"b")}).failOn(call, 1, [] { throw 42; });
        FolderListing<ListEntry> const all = at().listAll();
        auto position = all.begin();
        EXPECT_THROW(++position, int);
    }
}

TEST_F(FailingStep, LeavesTheIteratorWhereItWas) {
    for (CursorCall const call :
         {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
        auto position = failing(call, 9);
        auto const same = listing.begin();
        ListEntry const* const element = &*position;
        EXPECT_ANY_THROW(++position);
        EXPECT_EQ(&*position, element);
        EXPECT_EQ(nameOf(*position), "a");
        EXPECT_TRUE(position == same);
        EXPECT_FALSE(position == listing.end());
    }
}

// Behind its first step an iterator holds its element alone, and writes the next one over it.
TEST_F(FailingStep, LeavesAnElementThatNoCopyHoldsWhereItWas) {
    for (CursorCall const call :
         {CursorCall::HasNext, CursorCall::Advance, CursorCall::CurrentEntry}) {
        tree.add(u"mem:/f", {file(u"a"), file(u"b"), file(u"c")}).failOn(call, 2, 9);
        FolderListing<ListEntry> const all = at().listAll();
        auto position = all.begin();
        ListEntry const* const element = &*++position;
        EXPECT_ANY_THROW(++position);
        EXPECT_EQ(&*position, element);
        EXPECT_EQ(nameOf(*position), "b");
    }
    tree.add(u"mem:/f", {file(u"a"), file(u"b"), file(u""), file(u"d")});
    FolderListing<File> const files = at().listFiles();
    auto position = files.begin();
    File const* const element = &*++position;
    EXPECT_EQ(rawCodeOf([&] { ++position; }), 1U);
    EXPECT_EQ(&*position, element);
    EXPECT_EQ(namesFrom(position, files), (Names{"b", "d"}));
}

TEST_F(FailingStep, OfTheFirstTraversalLeavesTheNextOneAlone) {
    auto position = failing(CursorCall::Advance, 9);
    EXPECT_ANY_THROW(++position);
    EXPECT_EQ(namesIn(listing), (Names{"a", "b", "c"}));
}

TEST_F(FailingStep, ToCloneComesOutAsItIs) {
    CursorScript& script = tree.add(u"mem:/f", {file(u"a"), file(u"b")});
    FolderListing<ListEntry> const all = at().listAll();
    auto const position = all.begin();
    auto assigned = all.end();
    script.failOn(CursorCall::Clone, 1, 9, 4);
    EXPECT_EQ(rawCodeOf([&] { all.begin(); }), 9U);
    EXPECT_EQ(rawCodeOf([&] { auto const copy = position; }), 9U);
    EXPECT_EQ(rawCodeOf([&] { assigned = position; }), 9U);
    EXPECT_TRUE(assigned == all.end()) << "a failed assignment changes nothing";
    EXPECT_EQ(rawCodeOf([&] { auto const copy = all; }), 9U);
    EXPECT_NO_THROW(all.end());
}

TEST_F(FailingStep, OfACursorThatGivesNoCloneIsADefect) {
    tree.add(u"mem:/f", {file(u"a")}).cloneless = true;
    FolderListing<ListEntry> const all = at().listAll();
    EXPECT_EQ(codeOf([&] { all.begin(); }), ErrorCode::InternalError);
}

} // namespace
