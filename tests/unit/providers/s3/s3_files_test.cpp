// What keys are as files and folders, and what it costs to ask for them.

#include "provider_fixture.hpp"

#include <foundation/storage/provider/exception.hpp>

namespace foundation::storage::provider::s3 {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class S3Files : public ProviderOfBucket {};

TEST_F(S3Files, AKeyImpliesTheFoldersOnItsWay) {
    put("a/b/c");
    EXPECT_EQ(provider_->exists(at(u"a")), ExistsResult::Folder);
    EXPECT_EQ(provider_->exists(at(u"a/b")), ExistsResult::Folder);
    EXPECT_EQ(provider_->exists(at(u"a/b/c")), ExistsResult::File);
    EXPECT_EQ(provider_->exists(at(u"a/b/c/d")), ExistsResult::Nothing);
    EXPECT_THAT(tree(), ElementsAre("a/", "a/b/", "a/b/c"));
}

TEST_F(S3Files, AnImpliedFolderGoesWithItsLastFileAndAMadeOneStays) {
    put("implied/file");
    provider_->createFolder(at(u"made"));
    put("made/file");
    provider_->removeFile(at(u"implied/file"));
    provider_->removeFile(at(u"made/file"));
    EXPECT_THAT(folder(), ElementsAre("made/"));
    EXPECT_THAT(keys(), ElementsAre("made/"));
}

TEST_F(S3Files, NamesBesideAFolderDoNotHideIt) {
    for (int number = 0; number < 30; ++number) { // all stand between `a` and `a/`
        put("a-" + std::to_string(number));
    }
    put("a/b");
    EXPECT_EQ(provider_->exists(at(u"a")), ExistsResult::Folder);
    put("a");
    EXPECT_EQ(provider_->exists(at(u"a")), ExistsResult::File);
}

TEST_F(S3Files, OfAFileAndAFolderOfOneNameTheFileIsListed) {
    put("a");
    put("a-b");
    put("a/b");
    put("c");
    EXPECT_THAT(listed(provider_->listAll(at(u""), {})).names, ElementsAre("a", "a-b", "c"));
    EXPECT_THAT(listed(provider_->listAllRecursive(at(u""), {})).names,
                ElementsAre("a", "a-b", "c"));
    EXPECT_EQ(provider_->exists(at(u"a")), ExistsResult::File);
    EXPECT_TRUE(provider_->folderExists(at(u"a")));
    EXPECT_THAT(folder(u"a"), ElementsAre("b"));
    provider_->removeFolderRecursively(at(u"a"));
    EXPECT_THAT(keys(), ElementsAre("a", "a-b", "c"));
}

TEST_F(S3Files, KeysThatNoLocationHasAreNotListed) {
    for (char const* key :
         {"/first", "../up", "./here", "a//b", "a/../c", "a/..", "a/good", "..", "b/./", "\xFFx"}) {
        put(key);
    }
    Listed const tree = listed(provider_->listAllRecursive(at(u""), {}));
    EXPECT_THAT(tree.names, ElementsAre("a/", "a/good"));
    EXPECT_EQ(tree.reason, "9 keys cannot be listed as files and folders, the first: ..");
    EXPECT_THAT(listed(provider_->listAll(at(u"a"), {})).names, ElementsAre("good"));
    provider_->removeFolderRecursively(at(u"a"));
    EXPECT_FALSE(provider_->folderExists(at(u"a"))) << "what is not listed goes too";
}

TEST_F(S3Files, AListingThatLeavesOutKeysFailsAtItsEnd) {
    struct Row {
        std::string key; // beside `d/x`
        std::string inTree;
        std::string inFolder;
    };
    std::string const one = "1 key cannot be listed as files and folders, the first: ";
    std::string const prefix = "1 key or prefix of keys cannot be listed as files and folders, the "
                               "first: ";
    for (Row const& row :
         {Row{"d/x/below", one + "d/x/below", prefix + "d/x/"},
          Row{"d/x/", one + "d/x/", prefix + "d/x/"},
          Row{"d//hidden", one + "d//hidden", prefix + "d//"}, Row{"d/.", one + "d/.", one + "d/."},
          Row{"d/../up", one + "d/../up", prefix + "d/../"},
          Row{"d/\xFF", one + "d/%FF", one + "d/%FF"},
          Row{"d/\xE2\x80\xAE", "", ""}, // has a name, whatever it looks like
          Row{std::string("d/a\0b", 5), one + "d/a%00b", one + "d/a%00b"}}) {
        put("d/x");
        put(row.key);
        for (ustring const& filter : {ustring(), ustring(u"no such*")}) {
            SCOPED_TRACE(row.inTree + (filter.empty() ? "" : ", filtered"));
            Listed const ends[] = {listed(provider_->listAllRecursive(at(u"d"), filter)),
                                   listed(provider_->listAllRecursiveNamesOnly(at(u"d"), filter)),
                                   listed(provider_->listAll(at(u"d"), filter)),
                                   listed(provider_->listFiles(at(u"d"), filter)),
                                   listed(provider_->listFolders(at(u"d"), filter)),
                                   listed(provider_->listAllNamesOnly(at(u"d"), filter)),
                                   listed(provider_->listFilesNamesOnly(at(u"d"), filter)),
                                   listed(provider_->listFoldersNamesOnly(at(u"d"), filter))};
            for (std::size_t i = 0; i < std::size(ends); ++i) {
                std::string const& reason = i < 2 ? row.inTree : row.inFolder;
                EXPECT_EQ(ends[i].reason, reason) << i;
                EXPECT_EQ(ends[i].code, reason.empty() ? -1 : refused(ErrorCode::IOError)) << i;
            }
            EXPECT_EQ(ends[2].names.empty(), !filter.empty());
        }
        bucket_->remove(row.key, bucket_->deadline());
    }
}

TEST_F(S3Files, AMarkerWithBytesIsMoreThanAFolder) {
    put("d/e/", "bytes");
    put("d/e/x");
    std::string const reason = "1 key cannot be listed as files and folders, the first: d/e/";
    Listed const tree = listed(provider_->listAllRecursive(at(u"d"), {}));
    EXPECT_THAT(tree.names, ElementsAre("e/", "e/x"));
    EXPECT_EQ(tree.reason, reason);
    EXPECT_THAT(folder(u"d"), ElementsAre("e/")) << "of what is in it nothing is known";
    Listed const itself = listed(provider_->listAll(at(u"d/e"), {}));
    EXPECT_THAT(itself.names, ElementsAre("x"));
    EXPECT_EQ(itself.reason, reason);
}

TEST_F(S3Files, WhatIsLeftOutIsCountedOverAllPages) {
    for (int number = 0; number < 20; ++number) {
        put("d/" + std::to_string(number));
        put("d/" + std::to_string(number) + "/below");
    }
    for (unsigned const pageSize : {1U, 7U, 1000U}) {
        S3Options some = options();
        some.pageSize = pageSize;
        use(some);
        Listed const tree = listed(provider_->listAllRecursive(at(u"d"), {}));
        EXPECT_EQ(tree.names.size(), 20U);
        EXPECT_EQ(tree.reason,
                  "20 keys cannot be listed as files and folders, the first: d/0/below");
        Listed const folder = listed(provider_->listAll(at(u"d"), {}));
        EXPECT_EQ(folder.names.size(), 20U);
        EXPECT_EQ(folder.reason, "20 keys or prefixes of keys cannot be listed as files and "
                                 "folders, the first: d/0/");
    }
}

TEST_F(S3Files, AMoveWithinTheStoreTakesWhatIsNotListedAlong) {
    for (char const* key : {"d/x", "d/x/below", "d//hidden"}) {
        put(key, key);
    }
    provider_->moveFolder(at(u"d"), at(u"e"), ReplacementPolicy::FailIfExists);
    EXPECT_THAT(keys(), ElementsAre("e//hidden", "e/x", "e/x/below"));
}

TEST_F(S3Files, ATreeIsTheSameInPagesOfAnySize) {
    for (char const* key :
         {"a/1", "a/2", "a/b/", "a/b/1", "a/b/c/d/1", "a/b/c/d/2", "a/e", "a!", "b/", "c/d/e/"}) {
        put(key);
    }
    std::vector<std::string> const expected{"a!",    "a/",     "a/1",      "a/2",       "a/b/",
                                            "a/b/1", "a/b/c/", "a/b/c/d/", "a/b/c/d/1", "a/b/c/d/2",
                                            "a/e",   "b/",     "c/",       "c/d/",      "c/d/e/"};
    for (unsigned const pageSize : {1U, 2U, 3U, 7U, 1000U}) {
        S3Options some = options();
        some.pageSize = pageSize;
        use(some);
        EXPECT_EQ(tree(), expected) << pageSize;
        EXPECT_THAT(folder(u"a"), ElementsAre("1", "2", "b/", "e")) << pageSize;
    }
}

TEST_F(S3Files, AListingTakesARequestForEachPage) {
    for (int number = 0; number < 95; ++number) {
        put("a/" + std::to_string(1000 + number));
    }
    S3Options some = options();
    some.pageSize = 10;
    use(some);
    EXPECT_EQ(countAsked("LIST", [&] { EXPECT_EQ(tree().size(), 96U); }), 10U);
    EXPECT_EQ(countAsked("LIST", [&] { EXPECT_EQ(folder(u"a").size(), 95U); }), 10U);
}

TEST_F(S3Files, WhoStaysAtTheFirstEntryAsksForNoFurtherPage) {
    for (int number = 0; number < 9; ++number) {
        put(std::to_string(number));
    }
    S3Options some = options();
    some.pageSize = 3;
    use(some);
    std::unique_ptr<IFolderEntryIterator> cursor;
    EXPECT_EQ(asked([&] {
                  cursor = provider_->listAll(at(u""), {});
                  cursor->advance();
              }),
              "LIST");
    std::unique_ptr<IFolderEntryIterator> const clone(cursor->cloneIterator());
    EXPECT_EQ(namesOf(*clone).size(), 8U);
    EXPECT_EQ(namesOf(*cursor).size(), 8U);
}

TEST_F(S3Files, ListedFilesBringTheirSizes) {
    put("a", "12345");
    auto const cursor = provider_->listAll(at(u""), {});
    cursor->advance();
    EXPECT_EQ(cursor->currentEntry().getFileAttributes()->values().size, 5U);
}

TEST_F(S3Files, ManyFilesInAFolderAskForTheFolderOnce) {
    provider_->createFolder(at(u"a"));
    EXPECT_EQ(asked([&] {
                  provider_->createFile(at(u"a/1"));
                  provider_->createFile(at(u"a/2"));
              }),
              "LIST PUT LIST PUT");
}

TEST_F(S3Files, WhatAFileToldAnswersForAMoment) {
    S3Options patient = options();
    patient.attributeLifetime = std::chrono::hours(1); // however slow the machine is
    use(patient);
    put("a", "12345");
    EXPECT_EQ(asked([&] {
                  EXPECT_EQ(provider_->getFileAttributes(at(u"a")).values().size, 5U);
                  EXPECT_EQ(provider_->getFileAttributes(at(u"a")).values().size, 5U);
                  EXPECT_EQ(provider_->exists(at(u"a")), ExistsResult::File);
              }),
              "HEAD");
    write(u"a", "other bytes");
    EXPECT_EQ(provider_->getFileAttributes(at(u"a")).values().size, 11U);
    provider_->removeFile(at(u"a"));
    EXPECT_EQ(provider_->exists(at(u"a")), ExistsResult::Nothing);
}

TEST_F(S3Files, TreesAreRemovedByPages) {
    for (int number = 0; number < 25; ++number) {
        put("a/" + std::to_string(number));
    }
    put("a-stays");
    S3Options some = options();
    some.pageSize = 10;
    use(some);
    EXPECT_EQ(countAsked("POST", [&] { provider_->removeFolderRecursively(at(u"a")); }), 3U);
    EXPECT_THAT(keys(), ElementsAre("a-stays"));
}

TEST_F(S3Files, AFolderMovesByPagesWithAllThatIsInIt) {
    for (char const* key : {"a/", "a/1", "a/b/2", "a/b/3", "a/c/", "a-stays"}) {
        put(key, key);
    }
    S3Options some = options();
    some.pageSize = 2;
    use(some);
    provider_->moveFolder(at(u"a"), at(u"z"), ReplacementPolicy::FailIfExists);
    EXPECT_THAT(keys(), ElementsAre("a-stays", "z/", "z/1", "z/b/2", "z/b/3", "z/c/"));
    EXPECT_EQ(read(u"z/b/2"), "a/b/2");
}

TEST_F(S3Files, ACopyStaysInTheStoreAndKeepsItsTime) {
    put("a", std::string(100'000, 'x'));
    auto const time = provider_->getFileAttributes(at(u"a")).values().lastModified;
    CopyStatus status{};
    EXPECT_EQ(asked([&] {
                  status = provider_->copyFile(at(u"a"), StorageItem(provider_, at(u"b")), {});
              }),
              "HEAD LIST HEAD PUT");
    EXPECT_EQ(status, CopyStatus::CopiedWithTimes);
    EXPECT_EQ(provider_->getFileAttributes(at(u"b")).values().lastModified, time);
    EXPECT_EQ(read(u"b"), std::string(100'000, 'x'));
}

TEST_F(S3Files, TimesAreSetOnFilesAndFolders) {
    put("a", "bytes");
    provider_->createFolder(at(u"f"));
    for (Timestamp const time :
         {Timestamp{1'000'000'000, 0}, {1'234'567'890, 123'456'000}, {-86'400, 500'000'000}}) {
        provider_->setLastModified(at(u"a"), toPtime(time));
        provider_->setLastModified(at(u"f"), toPtime(time));
        EXPECT_EQ(provider_->getFileAttributes(at(u"a")).values().lastModified, time);
        EXPECT_EQ(provider_->getFolderAttributes(at(u"f")).values().lastModified, time);
    }
    EXPECT_EQ(read(u"a"), "bytes");
}

TEST_F(S3Files, WhatIsNoKeyIsRefused) {
    auto const refusal = refused(ErrorCode::InvalidLocation);
    EXPECT_EQ(codeOf([&] { provider_->exists(StorageIRI(u"s3://other/a")); }), refusal);
    EXPECT_EQ(codeOf([&] { provider_->exists(StorageIRI(u"s3://good/a?b")); }), refusal);
    EXPECT_EQ(codeOf([&] { provider_->exists(StorageIRI(u"s3://good")); }), refusal);
    EXPECT_EQ(codeOf([&] { provider_->exists(at(u"%FF")); }), refusal);
    EXPECT_EQ(codeOf([&] { provider_->exists(at(ustring(1025, u'x'))); }), refusal);
    for (ustring const location : {u"s3://ab/", u"s3:/a", u"s3://ann@good/", u"s3://good:80/"}) {
        EXPECT_EQ(codeOf([&] { S3Provider(StorageIRI(location), options()); }), refusal);
    }
}

TEST_F(S3Files, NamesWithoutRoomForASlashAreNoFolders) {
    ustring const name(1024, u'x');
    put(std::string(1024, 'x'), "bytes");
    EXPECT_EQ(provider_->exists(at(name)), ExistsResult::File);
    EXPECT_EQ(asked([&] { EXPECT_FALSE(provider_->folderExists(at(name))); }), "");
    auto const missing = refused(ErrorCode::ResourceNotFound);
    EXPECT_EQ(asked([&] {
                  EXPECT_EQ(codeOf([&] { provider_->getFolderAttributes(at(name)); }), missing);
                  EXPECT_EQ(codeOf([&] { provider_->listAll(at(name), {}); }), missing);
                  EXPECT_EQ(codeOf([&] { provider_->removeFolder(at(name)); }), missing);
                  EXPECT_EQ(codeOf([&] { provider_->removeFolderRecursively(at(name)); }), missing);
              }),
              "");
    EXPECT_TRUE(provider_->getExtendedAttributes(at(name)).contains("s3.etag"));
    provider_->removeFile(at(name));
    EXPECT_EQ(codeOf([&] { provider_->getExtendedAttributes(at(name)); }), missing);
    EXPECT_EQ(codeOf([&] { provider_->setLastModified(at(name), toPtime({5, 0})); }), missing);
    auto const refusal = refused(ErrorCode::InvalidLocation);
    EXPECT_EQ(codeOf([&] { provider_->createFolder(at(name)); }), refusal);
    EXPECT_EQ(codeOf([&] { provider_->createFolderRecursive(at(u"a/" + ustring(1022, u'x'))); }),
              refusal);
    EXPECT_THAT(keys(), IsEmpty()) << "nothing above it is made either";
}

TEST_F(S3Files, OptionsBeyondTheirBoundsAreRefused) {
    auto const expectRefused = [&](auto const& change) {
        S3Options wrong = options();
        change(wrong);
        EXPECT_THROW(use(wrong), std::invalid_argument);
    };
    constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;
    for (std::uint64_t const size : {std::uint64_t{0}, std::uint64_t{1}, 5 * mebibyte - 1,
                                     5 * 1024 * mebibyte + 1, ~std::uint64_t{0}}) {
        expectRefused([&](S3Options& wrong) { wrong.partSize = size; });
        expectRefused([&](S3Options& wrong) { wrong.largestCopy = size; });
    }
    for (unsigned const count : {0U, 1001U, ~0U}) {
        expectRefused([&](S3Options& wrong) { wrong.pageSize = count; });
        expectRefused([&](S3Options& wrong) { wrong.concurrency = count; });
    }
}

TEST_F(S3Files, OptionsThatWouldBreakARequestApartAreRefusedWithoutBeingRepeated) {
    using Text = std::string S3Options::*;
    using Secret = std::string Credentials::*;
    std::vector<std::function<void(S3Options&, std::string const&)>> places;
    for (Text const text : {&S3Options::region, &S3Options::endpoint}) {
        places.emplace_back([=](S3Options& some, std::string const& more) { some.*text += more; });
    }
    for (Secret const secret :
         {&Credentials::accessKey, &Credentials::secretKey, &Credentials::sessionToken}) {
        places.emplace_back(
            [=](S3Options& some, std::string const& more) { some.credentials.*secret += more; });
    }
    for (auto const& place : places) {
        for (std::string const& more :
             {std::string("\r\nX-Evil: CANARY"), std::string("\nCANARY"), std::string("CANARY\r"),
              std::string("CANARY\0", 7), std::string("CANARY\x7f"), std::string("\tCANARY")}) {
            S3Options wrong = options();
            place(wrong, more);
            try {
                use(wrong);
                ADD_FAILURE() << "not refused";
            } catch (std::invalid_argument const& refusal) {
                EXPECT_THAT(refusal.what(), ::testing::Not(::testing::HasSubstr("CANARY")));
                EXPECT_THAT(refusal.what(), ::testing::HasSubstr("control character"));
            }
        }
    }
    EXPECT_EQ(server_.requests().size(), 0U);
}

TEST_F(S3Files, TheRootStays) {
    EXPECT_EQ(codeOf([&] { provider_->removeFolder(at(u"")); }), refused(ErrorCode::ResourceInUse));
    EXPECT_EQ(codeOf([&] { provider_->removeFolderRecursively(at(u"")); }),
              refused(ErrorCode::ResourceInUse));
    EXPECT_THAT(folder(), IsEmpty());
}

} // namespace
} // namespace foundation::storage::provider::s3
