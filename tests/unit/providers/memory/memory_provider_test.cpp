#include "memory_store.hpp"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <stdexcept>

namespace {

using namespace memory_test;

TEST(MemoryProvider, BeginsWithARootAndNothingElse) {
    Store store;
    EXPECT_EQ(store->exists(at(u"/")), ExistsResult::Folder);
    EXPECT_EQ(store->exists(StorageIRI(u"mem:///")), ExistsResult::Folder);
    EXPECT_EQ(store->exists(at(u"/a")), ExistsResult::Nothing);
}

TEST(MemoryProvider, RefusesALocationThatIsNotOneOfAStore) {
    Store store;
    for (StorageIRI const& location : {at(u"/").getParent(), StorageIRI(u"mem://host/a"),
                                       at(u"/a?b"), at(u"/a#b"), StorageIRI(u"mem:file:///a!/b")}) {
        for (auto const& call : std::initializer_list<std::function<void()>>{
                 [&] { store->exists(location); }, [&] { store->createFile(location); },
                 [&] { store->createFolderRecursive(location); },
                 [&] { store->openReadOnlyStream(location); },
                 [&] { store->getCanonicalLocation(location); }}) {
            auto const failed = failureOf(call);
            ASSERT_TRUE(failed.has_value());
            EXPECT_EQ(failed->first, ErrorCode::InvalidLocation);
        }
    }
}

TEST(MemoryProvider, ReadsALocationByItsResolvedPath) {
    Store store;
    store->createFolder(at(u"/a"));
    store->createFile(at(u"/a//b/../caf%C3%A9/"));
    EXPECT_TRUE(store.isThere(u"/a/caf\u00e9"));
}

TEST(MemoryProvider, EachProviderIsAStoreOfItsOwn) {
    Store one;
    Store other;
    one->createFile(at(u"/a"));
    EXPECT_FALSE(other.isThere(u"/a"));
}

TEST(MemoryProvider, EveryOperationHasOneAnswerForMissingExistingAndWrongKind) {
    enum Target { Missing, File, Folder, Full, NoParent, BelowFile, Root };
    struct Row {
        char const* name;
        std::function<void(Store&, StorageIRI const&)> operation;
        std::array<std::optional<ErrorCode>, 7> codes;
    };
    using enum ErrorCode;
    constexpr std::optional<ErrorCode> done;
    ByteStreamOpenOptions const create{};
    ByteStreamOpenOptions const existing{ByteStreamAccess::WriteOnly,
                                         ByteStreamCreation::OpenExisting, 1, 1};
    Row const rows[] = {
        {"createFile",
         [](Store& s, StorageIRI const& l) { s->createFile(l); },
         {done, ResourceAlreadyExists, ResourceAlreadyExists, ResourceAlreadyExists,
          ResourceNotFound, ResourceNotFound, ResourceAlreadyExists}},
        {"createFolder",
         [](Store& s, StorageIRI const& l) { s->createFolder(l); },
         {done, ResourceAlreadyExists, ResourceAlreadyExists, ResourceAlreadyExists,
          ResourceNotFound, ResourceNotFound, ResourceAlreadyExists}},
        {"createFolderRecursive",
         [](Store& s, StorageIRI const& l) { s->createFolderRecursive(l); },
         {done, ResourceAlreadyExists, done, done, done, ResourceNotFound, done}},
        {"removeFile",
         [](Store& s, StorageIRI const& l) { s->removeFile(l); },
         {ResourceNotFound, done, InvalidLocation, InvalidLocation, ResourceNotFound,
          ResourceNotFound, InvalidLocation}},
        {"removeFolder",
         [](Store& s, StorageIRI const& l) { s->removeFolder(l); },
         {ResourceNotFound, ResourceNotFound, done, FolderNotEmpty, ResourceNotFound,
          ResourceNotFound, ResourceInUse}},
        {"removeFolderRecursively",
         [](Store& s, StorageIRI const& l) { s->removeFolderRecursively(l); },
         {ResourceNotFound, ResourceNotFound, done, done, ResourceNotFound, ResourceNotFound,
          ResourceInUse}},
        {"openReadOnlyStream",
         [](Store& s, StorageIRI const& l) { s->openReadOnlyStream(l); },
         {ResourceNotFound, done, InvalidLocation, InvalidLocation, ResourceNotFound,
          ResourceNotFound, InvalidLocation}},
        {"openStream creating",
         [&](Store& s, StorageIRI const& l) { s->openStream(l, create); },
         {done, done, InvalidLocation, InvalidLocation, ResourceNotFound, ResourceNotFound,
          InvalidLocation}},
        {"openStream existing",
         [&](Store& s, StorageIRI const& l) { s->openStream(l, existing); },
         {ResourceNotFound, done, InvalidLocation, InvalidLocation, ResourceNotFound,
          ResourceNotFound, InvalidLocation}},
        {"openReplacement",
         [](Store& s, StorageIRI const& l) {
             s->openReplacement(l, ReplacementPolicy::ReplaceExisting);
         },
         {done, done, InvalidLocation, InvalidLocation, ResourceNotFound, ResourceNotFound,
          InvalidLocation}},
        {"getFileAttributes",
         [](Store& s, StorageIRI const& l) { s->getFileAttributes(l); },
         {ResourceNotFound, done, InvalidLocation, InvalidLocation, ResourceNotFound,
          ResourceNotFound, InvalidLocation}},
        {"getFolderAttributes",
         [](Store& s, StorageIRI const& l) { s->getFolderAttributes(l); },
         {ResourceNotFound, ResourceNotFound, done, done, ResourceNotFound, ResourceNotFound,
          done}},
        {"getExtendedAttributes",
         [](Store& s, StorageIRI const& l) { s->getExtendedAttributes(l); },
         {ResourceNotFound, done, done, done, ResourceNotFound, ResourceNotFound, done}},
        {"setWritable",
         [](Store& s, StorageIRI const& l) { s->setWritable(l, true); },
         {ResourceNotFound, done, done, done, ResourceNotFound, ResourceNotFound, done}},
        {"setLastModified",
         [](Store& s, StorageIRI const& l) {
             s->setLastModified(l, toPtime({1, 0}));
         },
         {ResourceNotFound, done, done, done, ResourceNotFound, ResourceNotFound, done}},
        {"setFolderAttributes",
         [](Store& s, StorageIRI const& l) {
             s->setFolderAttributes(l, {0700, {}, {}});
         },
         {ResourceNotFound, InvalidLocation, done, done, ResourceNotFound, ResourceNotFound, done}},
        {"getCanonicalLocation",
         [](Store& s, StorageIRI const& l) { s->getCanonicalLocation(l); },
         {done, done, done, done, ResourceNotFound, ResourceNotFound, done}},
        {"createLink",
         [](Store& s, StorageIRI const& l) { s->createLink(l, u"x"); },
         {done, ResourceAlreadyExists, ResourceAlreadyExists, ResourceAlreadyExists,
          ResourceNotFound, ResourceNotFound, ResourceAlreadyExists}},
        {"readLink",
         [](Store& s, StorageIRI const& l) { s->readLink(l); },
         {ResourceNotFound, InvalidLocation, InvalidLocation, InvalidLocation, ResourceNotFound,
          ResourceNotFound, InvalidLocation}},
    };
    for (Row const& row : rows) {
        char16_t const* const targets[] = {u"/missing", u"/file",   u"/folder", u"/full",
                                           u"/no/item", u"/file/x", u"/"};
        for (int target = Missing; target <= Root; ++target) {
            Store store;
            store->createFile(at(u"/file"));
            store->createFolder(at(u"/folder"));
            store->createFolderRecursive(at(u"/full/inside"));
            ustring const path = targets[target];
            auto const failed = failureOf([&] { row.operation(store, at(path)); });
            auto const code = row.codes[static_cast<std::size_t>(target)];
            EXPECT_EQ(failed, code ? failure(*code, path) : std::nullopt)
                << row.name << " on target " << target;
        }
    }
}

TEST(MemoryProvider, TellsWhatIsThereByValue) {
    Store store;
    store->createFile(at(u"/file"));
    store->createFolder(at(u"/folder"));
    store->createLink(at(u"/toFile"), u"file");
    store->createLink(at(u"/toFolder"), u"/folder");
    store->createLink(at(u"/toNothing"), u"nothing");
    store->createLink(at(u"/loop"), u"loop");
    struct Row {
        char16_t const* path;
        ExistsResult exists;
        ExtendedExistsResult extended;
        bool file;
        bool folder;
    };
    for (Row const& row :
         {Row{u"/file", ExistsResult::File, ExtendedExistsResult::File, true, false},
          Row{u"/folder", ExistsResult::Folder, ExtendedExistsResult::Folder, false, true},
          Row{u"/toFile", ExistsResult::File, ExtendedExistsResult::LinkToFile, true, false},
          Row{u"/toFolder", ExistsResult::File, ExtendedExistsResult::LinkToFolder, true, true},
          Row{u"/toNothing", ExistsResult::File, ExtendedExistsResult::DanglingLink, true, false},
          Row{u"/loop", ExistsResult::File, ExtendedExistsResult::DanglingLink, true, false},
          Row{u"/no", ExistsResult::Nothing, ExtendedExistsResult::Nothing, false, false},
          Row{u"/file/x", ExistsResult::Nothing, ExtendedExistsResult::Nothing, false, false},
          Row{u"/no/x", ExistsResult::Nothing, ExtendedExistsResult::Nothing, false, false}}) {
        EXPECT_EQ(store->exists(at(row.path)), row.exists);
        EXPECT_EQ(store->existsExtended(at(row.path)), row.extended);
        EXPECT_EQ(store->fileExists(at(row.path)), row.file);
        EXPECT_EQ(store->folderExists(at(row.path)), row.folder);
    }
}

TEST(MemoryProvider, TellsNamesApartByEveryCharacter) {
    Store store;
    EXPECT_EQ(store->getFilenameSensitivity(at(u"/")), FilenameSensitivity::Sensitive);
    auto const same = store->getPathComparator(at(u"/"));
    EXPECT_TRUE(same(u"a", u"a", CaseModifier::AsStorage));
    EXPECT_FALSE(same(u"a", u"A", CaseModifier::AsStorage));
}

TEST(MemoryProvider, KeepsTimesToTheNanosecondAndSetsThemToTheMicrosecond) {
    Store store;
    store->createFile(at(u"/file"));
    auto const values = store->getFileAttributes(at(u"/file")).values();
    EXPECT_GT(values.lastModified.seconds, 1'700'000'000);
    ASSERT_TRUE(values.created.has_value());
    EXPECT_EQ(*values.created, values.lastModified);

    Timestamp const set{1'000'000'001, 123'456'000};
    store->setLastModified(at(u"/file"), toPtime(set));
    EXPECT_EQ(store->getFileAttributes(at(u"/file")).values().lastModified, set);
    store.put(u"/file", "x");
    EXPECT_GT(store->getFileAttributes(at(u"/file")).values().lastModified.seconds, set.seconds);
}

TEST(MemoryProvider, AFolderGetsTheAttributesThatAreGivenAndKeepsTheOthers) {
    Store store;
    store->createFolder(at(u"/folder"));
    store->createLink(at(u"/link"), u"folder");
    Timestamp const set{1'000'000'001, 123'456'789};

    store->setFolderAttributes(at(u"/folder"), {{}, set, {}});
    EXPECT_EQ(store->getFolderAttributes(at(u"/folder")).values().lastModified, set);
    EXPECT_EQ(store->getFolderAttributes(at(u"/folder")).values().mode, 0755u);

    store->setFolderAttributes(at(u"/folder"), {07711, {}, {}});
    EXPECT_EQ(store->getFolderAttributes(at(u"/folder")).values().lastModified, set);
    EXPECT_EQ(store->getFolderAttributes(at(u"/folder")).values().mode, 01711u);

    EXPECT_EQ(failureOf([&] {
                  store->setFolderAttributes(at(u"/link"), {0700, {}, {}});
              }),
              failure(ErrorCode::InvalidLocation, u"/link"));
    EXPECT_EQ(store->getFolderAttributes(at(u"/folder")).values().mode, 01711u);
}

TEST(MemoryProvider, ASpecialTimeIsRefusedAndChangesNothing) {
    Store store;
    store->createFile(at(u"/file"));
    auto const before = store->getFileAttributes(at(u"/file")).values().lastModified;
    EXPECT_THROW(store->setLastModified(at(u"/file"), boost::posix_time::ptime()),
                 std::invalid_argument);
    EXPECT_EQ(store->getFileAttributes(at(u"/file")).values().lastModified, before);
}

TEST(MemoryProvider, ChangesInAFolderMoveItsTime) {
    Store store;
    store->createFolder(at(u"/folder"));
    auto const isOld = [&] {
        bool const old =
            store->getFolderAttributes(at(u"/folder")).values().lastModified == Timestamp{1, 0};
        store->setLastModified(at(u"/folder"), toPtime({1, 0}));
        return old;
    };
    isOld();
    EXPECT_TRUE(isOld());
    store->createFile(at(u"/folder/a"));
    EXPECT_FALSE(isOld());
    store->moveFile(at(u"/folder/a"), at(u"/a"), ReplacementPolicy::FailIfExists);
    EXPECT_FALSE(isOld());
    store->moveFile(at(u"/a"), at(u"/folder/a"), ReplacementPolicy::FailIfExists);
    EXPECT_FALSE(isOld());
    store.put(u"/folder/a", "content");
    EXPECT_TRUE(isOld());
    store->removeFile(at(u"/folder/a"));
    EXPECT_FALSE(isOld());
}

TEST(MemoryProvider, AReadOnlyFileIsNotWrittenNorReplacedButCanBeRemoved) {
    Store store;
    store.put(u"/file", "old");
    store->setWritable(at(u"/file"), false);
    EXPECT_FALSE(store->getFileAttributes(at(u"/file")).isWritable());
    EXPECT_EQ(store->getExtendedAttributes(at(u"/file")).at("posix.mode"), "0444");
    auto const denied = failure(ErrorCode::PermissionDenied, u"/file");
    EXPECT_EQ(failureOf([&] { store->openStream(at(u"/file"), {}); }), denied);
    EXPECT_EQ(failureOf([&] {
                  store->openReplacement(at(u"/file"), ReplacementPolicy::ReplaceExisting);
              }),
              denied);
    store->createFile(at(u"/new"));
    EXPECT_EQ(failureOf([&] { store.copy(u"/new", u"/file", ReplacementPolicy::ReplaceReadOnly); }),
              denied);
    EXPECT_EQ(failureOf([&] {
                  store->moveFile(at(u"/new"), at(u"/file"), ReplacementPolicy::ReplaceExisting);
              }),
              denied);
    EXPECT_EQ(store.get(u"/file"), "old");
    store->removeFile(at(u"/file"));
    EXPECT_FALSE(store.isThere(u"/file"));
}

TEST(MemoryProvider, AReadOnlyFolderTakesNoEntryAndGivesNoneAway) {
    Store store;
    store->createFolder(at(u"/folder"));
    store->createFile(at(u"/folder/file"));
    store->createFile(at(u"/other"));
    store->setWritable(at(u"/folder"), false);
    for (auto const& [path, call] :
         std::initializer_list<std::pair<char16_t const*, std::function<void()>>>{
             {u"/folder/new", [&] { store->createFile(at(u"/folder/new")); }},
             {u"/folder/new", [&] { store->createFolder(at(u"/folder/new")); }},
             {u"/folder/new", [&] { store->createFolderRecursive(at(u"/folder/new")); }},
             {u"/folder/new", [&] { store->createLink(at(u"/folder/new"), u"x"); }},
             {u"/folder/new", [&] { store->openStream(at(u"/folder/new"), {}); }},
             {u"/folder/new", [&] { store.copy(u"/other", u"/folder/new"); }},
             {u"/folder/file", [&] { store->removeFile(at(u"/folder/file")); }},
             {u"/folder/file", [&] {
                  store->moveFile(at(u"/folder/file"), at(u"/taken"),
                                  ReplacementPolicy::FailIfExists);
              }}}) {
        EXPECT_EQ(failureOf(call), failure(ErrorCode::PermissionDenied, path));
    }
    store.put(u"/folder/file", "its content is free to change");
}

TEST(MemoryProvider, FollowsLinksWhereAPathGoesThroughThem) {
    Store store;
    store->createFolderRecursive(at(u"/a/b"));
    store.put(u"/a/b/file", "found");
    store->createLink(at(u"/a/toB"), u"b");
    store->createLink(at(u"/absolute"), u"/a/toB");
    store->createLink(at(u"/a/b/up"), u"../..");
    store->createLink(at(u"/slash"), u"a/b/");
    EXPECT_EQ(store.get(u"/absolute/file"), "found");
    EXPECT_EQ(store.get(u"/a/b/up/a/toB/file"), "found");
    EXPECT_EQ(store.get(u"/slash/file"), "found");
    EXPECT_EQ(store->getCanonicalLocation(at(u"/absolute/up/a/toB/file")), at(u"/a/b/file"));
    EXPECT_EQ(store->getCanonicalLocation(at(u"/a/toB/up")), at(u"/"));
    EXPECT_EQ(store->getCanonicalLocation(at(u"/a/toB/missing")), at(u"/a/b/missing"));
    store->createFile(at(u"/absolute/new"));
    EXPECT_TRUE(store.isThere(u"/a/b/new"));
}

TEST(MemoryProvider, ATargetWithATrailingSlashMustBeAFolder) {
    Store store;
    store->createFile(at(u"/file"));
    store->createLink(at(u"/link"), u"file/");
    EXPECT_EQ(failureOf([&] { store->openReadOnlyStream(at(u"/link")); }),
              failure(ErrorCode::ResourceNotFound, u"/link"));
}

TEST(MemoryProvider, CreatesAFileThroughALinkThatLeadsNowhereYet) {
    Store store;
    store->createFolder(at(u"/folder"));
    store->createLink(at(u"/link"), u"folder/file");
    EXPECT_EQ(failureOf([&] { store->createFile(at(u"/link")); }),
              failure(ErrorCode::ResourceAlreadyExists, u"/link"));
    store.put(u"/link", "through");
    EXPECT_EQ(store.get(u"/folder/file"), "through");
}

TEST(MemoryProvider, FollowsFortyLinksAndNoMore) {
    Store store;
    store.put(u"/link0", "end");
    for (int i = 1; i <= 41; ++i) {
        auto const name = [](int n) {
            std::string const text = "link" + std::to_string(n);
            return ustring(text.begin(), text.end());
        };
        store->createLink(at(u"/" + name(i)), name(i - 1));
    }
    EXPECT_EQ(store.get(u"/link40"), "end");
    EXPECT_EQ(failureOf([&] { store->openReadOnlyStream(at(u"/link41")); }),
              failure(ErrorCode::InvalidLocation, u"/link41"));
    store->createLink(at(u"/loop"), u"loop");
    EXPECT_EQ(failureOf([&] { store->exists(at(u"/loop/x")); }),
              failure(ErrorCode::InvalidLocation, u"/loop/x"));
}

TEST(MemoryProvider, ALinkThatLeadsNowhereHasAttributesOfItsOwn) {
    Store store;
    store->createLink(at(u"/link"), u"caf\u00e9");
    auto const values = store->getFileAttributes(at(u"/link")).values();
    EXPECT_EQ(values.size, 5U);
    EXPECT_EQ(values.mode, 0777U);
    store->setLastModified(at(u"/link"), toPtime({7, 0}));
    EXPECT_EQ(store->getFileAttributes(at(u"/link")).values().lastModified.seconds, 7);
    EXPECT_EQ(failureOf([&] { store->setWritable(at(u"/link"), false); }),
              failure(ErrorCode::UnsupportedOperation, u"/link"));
}

TEST(MemoryProvider, RefusesALinkTargetThatNoStorageCouldHold) {
    Store store;
    EXPECT_EQ(failureOf([&] { store->createLink(at(u"/link"), u""); }),
              failure(ErrorCode::ResourceNotFound, u"/link"));
    EXPECT_EQ(failureOf([&] { store->createLink(at(u"/link"), ustring(u"a\0b", 3)); }),
              failure(ErrorCode::InvalidLocation, u"/link"));
    EXPECT_EQ(failureOf([&] { store->createLink(at(u"/link"), ustring(1, char16_t{0xD800})); }),
              failure(ErrorCode::InvalidLocation, u"/link"));
    EXPECT_FALSE(store.isThere(u"/link"));
}

TEST(MemoryProvider, RemovingALinkLeavesWhatItLeadsTo) {
    Store store;
    store->createFolder(at(u"/folder"));
    store->createLink(at(u"/link"), u"folder");
    EXPECT_EQ(failureOf([&] { store->removeFolder(at(u"/link")); }),
              failure(ErrorCode::ResourceNotFound, u"/link"));
    store->removeFile(at(u"/link"));
    EXPECT_TRUE(store.isThere(u"/folder"));
}

TEST(MemoryProvider, KeepsNamesThatAreNotUtf8) {
    Store store;
    StorageIRI const location(u"mem:/a%FFb");
    store->createFile(location);
    EXPECT_EQ(store->exists(location), ExistsResult::File);
    EXPECT_EQ(store->getCanonicalLocation(location), location);
}

TEST(MemoryProvider, ATreeMayBeAsDeepAsItLikes) {
    constexpr int depth = 50'000;
    Store store;
    ustring path;
    for (int i = 0; i < depth; ++i) {
        path += u"/d";
    }
    store->createFolderRecursive(at(path));
    EXPECT_TRUE(store->folderExists(at(path)));
    EXPECT_EQ(store->getCanonicalLocation(at(path)), at(path));
    // And it is taken apart again, by a stack of ordinary size.
}

} // namespace
