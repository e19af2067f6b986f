#include "memory_store.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace memory_test;
using enum ReplacementPolicy;

TEST(MemoryCopy, KeepsContentModeAndNanosecondTimes) {
    Store store;
    store.put(u"/file", "content");
    auto const before = store->getFileAttributes(at(u"/file")).values();
    store->setWritable(at(u"/file"), false);
    EXPECT_EQ(store.copy(u"/file", u"/copy"), CopyStatus::CopiedWithTimes);
    EXPECT_EQ(store.get(u"/copy"), "content");
    auto const copied = store->getFileAttributes(at(u"/copy")).values();
    EXPECT_EQ(copied.lastModified, before.lastModified);
    EXPECT_FALSE(copied.writable);
}

TEST(MemoryCopy, SharesTheBytesUntilOneSideIsWritten) {
    Store store({.maximumBytes = 150'000, .maximumEntries = std::nullopt});
    store.put(u"/file", std::string(140'000, 'a'));
    store.copy(u"/file", u"/copy");
    store.copy(u"/copy", u"/third");
    auto const stream = store->openStream(
        at(u"/copy"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 1});
    // The block of 64 KiB that is written now takes the space of one.
    EXPECT_EQ(streamFailureOf<ByteStreamWriteFailure>([&] { stream->write("b", 1); }),
              ErrorCode::NoSpaceLeft);
    store->removeFile(at(u"/file"));
    store->removeFile(at(u"/third"));
    auto const again = store->openStream(
        at(u"/copy"), {ByteStreamAccess::WriteOnly, ByteStreamCreation::OpenExisting, 1, 1});
    again->write("b", 1);
    EXPECT_EQ(store.get(u"/copy").substr(0, 3), "baa");
}

TEST(MemoryCopy, ALinkReplacesAnotherLinkToTheSameItem) {
    Store store;
    store.put(u"/file", "content");
    store->createLink(at(u"/link"), u"file");
    store->createLink(at(u"/second"), u"link");
    EXPECT_EQ(store.copy(u"/link", u"/second", ReplaceExisting), CopyStatus::CopiedWithTimes);
    EXPECT_EQ(store->readLink(at(u"/second")), u"file");
    store->moveFile(at(u"/link"), at(u"/second"), ReplaceExisting);
    EXPECT_FALSE(store.isThere(u"/link"));
    EXPECT_EQ(store.get(u"/file"), "content");
    EXPECT_EQ(failureOf([&] { store.copy(u"/second", u"/second", ReplaceExisting); }),
              failure(ErrorCode::InvalidLocation, u"/second"));
    EXPECT_EQ(failureOf([&] { store.copy(u"/second", u"/file", ReplaceExisting); }),
              failure(ErrorCode::InvalidLocation, u"/second"));
}

TEST(MemoryCopy, ACopiedLinkLeavesWhatItLeadsToUnlocked) {
    Store store;
    store.put(u"/file", "content");
    store->createLink(at(u"/link"), u"file");
    EXPECT_EQ(store.copy(u"/link", u"/copy", ReplaceReadOnly), CopyStatus::Copied);
    EXPECT_EQ(store.copy(u"/file", u"/other", ReplaceReadOnly), CopyStatus::CopiedWithTimes);
}

TEST(MemoryCopy, ReportsOnceWithoutALockHeldAndCanBeCanceled) {
    Store store;
    store.put(u"/file", "content");
    int calls = 0;
    CopyFileOptions options;
    options.progress = [&](std::uint64_t done, std::optional<std::uint64_t> total) {
        EXPECT_EQ(done, 7U);
        EXPECT_EQ(total, 7U);
        store->createFile(at(u"/made while copying"));
        return ++calls > 1;
    };
    EXPECT_EQ(failureOf([&] { store->copyFile(at(u"/file"), store.item(u"/copy"), options); }),
              failure(ErrorCode::IOError, u"/copy"));
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(store.isThere(u"/copy"));
    EXPECT_TRUE(store.isThere(u"/made while copying"));
}

TEST(MemoryCopy, ChecksTheDestinationAgainWhenTheReportIsDone) {
    Store store;
    store.put(u"/file", "content");
    CopyFileOptions options;
    options.progress = [&](std::uint64_t, std::optional<std::uint64_t>) {
        store.put(u"/copy", "theirs");
        return true;
    };
    EXPECT_EQ(failureOf([&] { store->copyFile(at(u"/file"), store.item(u"/copy"), options); }),
              failure(ErrorCode::ResourceAlreadyExists, u"/copy"));
    EXPECT_EQ(store.get(u"/copy"), "theirs");
}

TEST(MemoryCopy, ASourceThatIsMovedOntoItsDestinationMeanwhileIsNotLost) {
    Store store;
    store.put(u"/file", "content");
    CopyFileOptions options{ReplaceExisting, 0, {}};
    options.progress = [&](std::uint64_t, std::optional<std::uint64_t>) {
        store->moveFile(at(u"/file"), at(u"/copy"), FailIfExists);
        return true;
    };
    EXPECT_EQ(failureOf([&] { store->copyFile(at(u"/file"), store.item(u"/copy"), options); }),
              failure(ErrorCode::InvalidLocation, u"/file"));
    EXPECT_EQ(store.get(u"/copy"), "content");
}

TEST(MemoryCopy, MakesLinksAgain) {
    Store store;
    store->createLink(at(u"/link"), u"nowhere");
    store->setLastModified(at(u"/link"), toPtime({7, 0}));
    store.put(u"/old", "old");
    EXPECT_EQ(store.copy(u"/link", u"/old", ReplaceExisting), CopyStatus::CopiedWithTimes);
    EXPECT_EQ(store->readLink(at(u"/old")), u"nowhere");
    EXPECT_EQ(store->getFileAttributes(at(u"/old")).values().lastModified.seconds, 7);
}

TEST(MemoryCopy, GoesToAnotherStoreByStreams) {
    Store store;
    Store other;
    store.put(u"/file", "content");
    store->createLink(at(u"/link"), u"file");
    EXPECT_EQ(store->copyFile(at(u"/file"), other.item(u"/copy"), {}), CopyStatus::Copied);
    store->copyFile(at(u"/link"), other.item(u"/link"), {});
    EXPECT_EQ(other.get(u"/copy"), "content");
    EXPECT_EQ(other->readLink(at(u"/link")), u"file");
}

TEST(MemoryTransfer, RefusesTwoNamesOfOneItemUnderEveryPolicy) {
    Store store;
    store->createFolder(at(u"/folder"));
    store.put(u"/folder/file", "content");
    store->createLink(at(u"/link"), u"folder/file");
    store->createLink(at(u"/door"), u"folder");
    for (ReplacementPolicy const policy :
         {FailIfExists, ReplaceExisting, ReplaceReadOnly, ReplaceAndDeferDenied, KeepExisting}) {
        struct Row {
            char16_t const* from;
            char16_t const* to;
        };
        for (Row const& row :
             {Row{u"/folder/file", u"/folder/file"}, Row{u"/folder/file", u"/link"},
              Row{u"/link", u"/folder/file"}, Row{u"/folder/file", u"/door/file"}}) {
            EXPECT_EQ(failureOf([&] { store.copy(row.from, row.to, policy); }),
                      failure(ErrorCode::InvalidLocation, row.from));
            EXPECT_EQ(failureOf([&] { store->moveFile(at(row.from), at(row.to), policy); }),
                      failure(ErrorCode::InvalidLocation, row.from));
        }
        EXPECT_EQ(failureOf([&] { store->moveFolder(at(u"/folder"), at(u"/folder"), policy); }),
                  failure(ErrorCode::InvalidLocation, u"/folder"));
        EXPECT_EQ(failureOf([&] { store->moveFolder(at(u"/folder"), at(u"/door"), policy); }),
                  failure(ErrorCode::InvalidLocation, u"/folder"));
    }
    EXPECT_EQ(store.get(u"/folder/file"), "content");
    EXPECT_EQ(store->readLink(at(u"/link")), u"folder/file");
}

TEST(MemoryMove, HasOneAnswerForEveryDestination) {
    struct Row {
        char16_t const* from;
        char16_t const* to;
        ReplacementPolicy policy;
        bool folder;
        std::optional<std::pair<ErrorCode, ustring>> failed;
    };
    using enum ErrorCode;
    Row const rows[] = {
        {u"/file", u"/new", FailIfExists, false, std::nullopt},
        {u"/file", u"/folder/new", FailIfExists, false, std::nullopt},
        {u"/file", u"/other", FailIfExists, false, failure(ResourceAlreadyExists, u"/other")},
        {u"/file", u"/other", KeepExisting, false, failure(ResourceAlreadyExists, u"/other")},
        {u"/file", u"/other", ReplaceExisting, false, std::nullopt},
        {u"/file", u"/folder", ReplaceExisting, false, failure(InvalidLocation, u"/folder")},
        {u"/file", u"/no/new", FailIfExists, false, failure(ResourceNotFound, u"/no/new")},
        {u"/missing", u"/new", FailIfExists, false, failure(ResourceNotFound, u"/missing")},
        {u"/folder", u"/new", FailIfExists, false, failure(InvalidLocation, u"/folder")},
        {u"/folder", u"/new", FailIfExists, true, std::nullopt},
        {u"/folder", u"/empty/new", FailIfExists, true, std::nullopt},
        {u"/folder", u"/empty", FailIfExists, true, failure(ResourceAlreadyExists, u"/empty")},
        {u"/folder", u"/empty", ReplaceExisting, true, std::nullopt},
        {u"/empty", u"/folder", ReplaceExisting, true, failure(FolderNotEmpty, u"/folder")},
        {u"/folder", u"/file", ReplaceExisting, true, failure(InvalidLocation, u"/file")},
        {u"/folder", u"/folder/sub/new", FailIfExists, true,
         failure(InvalidLocation, u"/folder/sub/new")},
        {u"/folder/sub", u"/folder", ReplaceExisting, true, failure(FolderNotEmpty, u"/folder")},
        {u"/file", u"/new", FailIfExists, true, failure(InvalidLocation, u"/file")},
        {u"/missing", u"/new", FailIfExists, true, failure(ResourceNotFound, u"/missing")},
        {u"/", u"/new", FailIfExists, true, failure(ResourceInUse, u"/new")},
        {u"/folder", u"/", ReplaceExisting, true, failure(ResourceInUse, u"/")},
    };
    for (Row const& row : rows) {
        Store store;
        store.put(u"/file", "file");
        store.put(u"/other", "other");
        store->createFolderRecursive(at(u"/folder/sub"));
        store->createFolder(at(u"/empty"));
        auto const failed = failureOf([&] {
            if (row.folder) {
                store->moveFolder(at(row.from), at(row.to), row.policy);
            } else {
                store->moveFile(at(row.from), at(row.to), row.policy);
            }
        });
        auto const name = [](char16_t const* text) {
            return std::string(text, text + std::char_traits<char16_t>::length(text));
        };
        EXPECT_EQ(failed, row.failed) << name(row.from) << " to " << name(row.to);
        if (!row.failed) {
            EXPECT_FALSE(store.isThere(row.from));
            EXPECT_TRUE(row.folder ? store.isThere(ustring(row.to) + u"/sub")
                                   : store.get(row.to) == "file");
        }
    }
}

// After such a refusal a caller that copies and removes would lose files, or fill the store.
TEST(MemoryMove, IsInvalidWhereACopyWouldGoIntoItsOwnSourceWhateverElseThereIs) {
    Store store;
    for (char16_t const* const folder :
         {u"/folder/below", u"/folder/locked", u"/folder/empty", u"/folder/folder", u"/x/y/x/y"}) {
        store->createFolderRecursive(at(folder));
    }
    store.put(u"/folder/below/file", "content");
    store->setWritable(at(u"/folder/locked"), false);
    store->createLink(at(u"/way in"), u"folder/below");
    store->createLink(at(u"/folder/way around"), u"../folder/empty");
    store->createLink(at(u"/folder/way to nothing"), u"/nothing");
    store->createLink(at(u"/here"), u".");
    auto const before = store->listAllRecursiveNamesOnly(at(u"/"), u"");
    std::size_t entries = 0;
    for (; before->hasNext(); before->advance()) {
        ++entries;
    }
    for (ReplacementPolicy const policy :
         {FailIfExists, ReplaceExisting, ReplaceReadOnly, ReplaceAndDeferDenied, KeepExisting}) {
        for (auto const& [from, to] : std::initializer_list<std::pair<ustring, ustring>>{
                 {u"/folder", u"/folder/below"},
                 {u"/folder", u"/folder/locked"},
                 {u"/folder", u"/folder/empty"},
                 {u"/folder", u"/folder/new"},
                 {u"/folder", u"/way in"},
                 {u"/folder", u"/way in/new"},
                 {u"/folder", u"/folder/way around"},
                 {u"/folder", u"/folder/way to nothing"},
                 {u"/folder", u"/here/here/folder/below"},
                 {u"/x/y", u"/x/y/x"},
                 {u"/x/y/x", u"/x/y/x/y"}}) {
            EXPECT_EQ(failureOf([&] { store->moveFolder(at(from), at(to), policy); }),
                      failure(ErrorCode::InvalidLocation, to));
        }
        // Onto a folder above: as x/y/x/y is where x/y would be, so not x/y/x onto x.
        ErrorCode const harmless = policy == FailIfExists || policy == KeepExisting
                                       ? ErrorCode::ResourceAlreadyExists
                                       : ErrorCode::FolderNotEmpty;
        EXPECT_EQ(failureOf([&] { store->moveFolder(at(u"/x/y"), at(u"/x"), policy); }),
                  failure(harmless, u"/x"));
        store->createFolderRecursive(at(u"/x/y/x/y/x"));
        EXPECT_EQ(failureOf([&] { store->moveFolder(at(u"/x/y/x"), at(u"/x"), policy); }),
                  failure(ErrorCode::InvalidLocation, u"/x"));
        store->removeFolder(at(u"/x/y/x/y/x"));
        EXPECT_EQ(failureOf([&] { store->moveFolder(at(u"/x/y/x"), at(u"/x"), policy); }),
                  failure(harmless, u"/x"));
    }
    auto const after = store->listAllRecursiveNamesOnly(at(u"/"), u"");
    for (; after->hasNext(); after->advance()) {
        --entries;
    }
    EXPECT_EQ(entries, 0U);
}

TEST(MemoryMove, OfAFolderIsAnsweredUnderEveryPolicy) {
    for (ReplacementPolicy const policy :
         {FailIfExists, ReplaceExisting, ReplaceReadOnly, ReplaceAndDeferDenied, KeepExisting}) {
        bool const replaced = policy != FailIfExists && policy != KeepExisting;
        Store store;
        store->createFolder(at(u"/folder"));
        store.put(u"/folder/inner", "inside");
        store.put(u"/file", "content");
        store->createFolder(at(u"/empty"));
        store->createFolder(at(u"/locked"));
        store->setWritable(at(u"/locked"), false);
        store->createFolder(at(u"/full"));
        store.put(u"/full/kept", "kept");
        store->createLink(at(u"/link to folder"), u"full");
        store->createLink(at(u"/link to nothing"), u"nothing");
        for (auto const& [to, code] : std::initializer_list<std::pair<ustring, ErrorCode>>{
                 {u"/file", ErrorCode::InvalidLocation},
                 {u"/link to folder", ErrorCode::InvalidLocation},
                 {u"/link to nothing", ErrorCode::InvalidLocation},
                 {u"/full", ErrorCode::FolderNotEmpty},
                 {u"/locked", ErrorCode::PermissionDenied}}) {
            EXPECT_EQ(failureOf([&] { store->moveFolder(at(u"/folder"), at(to), policy); }),
                      failure(replaced ? code : ErrorCode::ResourceAlreadyExists, to));
        }
        auto const ontoEmpty =
            failureOf([&] { store->moveFolder(at(u"/folder"), at(u"/empty"), policy); });
        EXPECT_EQ(ontoEmpty,
                  replaced ? std::nullopt : failure(ErrorCode::ResourceAlreadyExists, u"/empty"));
        EXPECT_EQ(store.get(replaced ? u"/empty/inner" : u"/folder/inner"), "inside");
        EXPECT_EQ(store.isThere(u"/folder"), !replaced);
    }
}

TEST(MemoryMove, AChangeOfCaseAloneIsAMoveOfAFolder) {
    Store store;
    store->createFolder(at(u"/folder"));
    store.put(u"/folder/inner", "inside");
    store->moveFolder(at(u"/folder"), at(u"/Folder"), FailIfExists);
    EXPECT_EQ(store.get(u"/Folder/inner"), "inside");
    EXPECT_FALSE(store.isThere(u"/folder"));
}

TEST(MemoryMove, TakesALinkAndNotWhatItLeadsTo) {
    Store store;
    store->createFolder(at(u"/folder"));
    store->createLink(at(u"/link"), u"folder");
    store->moveFile(at(u"/link"), at(u"/moved"), FailIfExists);
    EXPECT_EQ(store->readLink(at(u"/moved")), u"folder");
    EXPECT_FALSE(store.isThere(u"/link"));
    EXPECT_EQ(failureOf([&] { store->moveFolder(at(u"/moved"), at(u"/new"), FailIfExists); }),
              failure(ErrorCode::InvalidLocation, u"/moved"));
}

TEST(MemoryMove, LeavesAnotherStorageToTheCaller) {
    Store store;
    store.put(u"/file", "content");
    for (StorageIRI const& elsewhere :
         {StorageIRI(u"memory:/there"), StorageIRI(u"mem://host/there")}) {
        for (auto const& call : std::initializer_list<std::function<void()>>{
                 [&] { store->moveFile(at(u"/file"), elsewhere, FailIfExists); },
                 [&] { store->moveFolder(at(u"/file"), elsewhere, FailIfExists); }}) {
            EXPECT_EQ(failureOf(call), failure(ErrorCode::UnsupportedOperation, u"/there"));
        }
    }
}

TEST(MemoryMove, OpenStreamsStayWithTheirFile) {
    Store store;
    store.put(u"/a", "a");
    store.put(u"/b", "b");
    auto const a = store->openReadOnlyStream(at(u"/a"));
    auto const b = store->openReadOnlyStream(at(u"/b"));
    store->moveFile(at(u"/a"), at(u"/b"), ReplaceExisting);
    EXPECT_EQ(Store::contentOf(*a), "a");
    EXPECT_EQ(Store::contentOf(*b), "b");
}

} // namespace
