// What is made of the answers of a server that speaks WebDAV, right and wrong ones.

#include "dav_fixture.hpp"

#include <sys/resource.h>

namespace foundation::storage::provider::http::test {
namespace {

using ::testing::ElementsAre;
using Names = std::vector<std::string>;

class DavListing : public Dav {};

TEST_F(DavListing, AsksOnceWhetherThereAreFolders) {
    EXPECT_THAT(list("/xml-plain"), ElementsAre("a file", "folder/"));
    EXPECT_THAT(list("/xml-plain/"), ElementsAre("a file", "folder/"));
    EXPECT_EQ(asked("OPTIONS"), 1U);
    EXPECT_EQ(asked("PROPFIND"), 2U);
    EXPECT_EQ(server_.countOf("depth: 1"), 2U);
    EXPECT_EQ(server_.requests().size(), 3U);
}

TEST_F(DavListing, AsksNothingMoreToReadAFile) {
    EXPECT_EQ(bytesOf("/good/500"), content(500));
    EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(DavListing, TakesWhatHoldsTheFirstClassForWebDav) {
    EXPECT_EQ(list("/xml-of-class-two/"), list("/xml-plain/"));
    for (std::string const path : {"/xml-not-spoken/", "/xml-of-another-origin/", "/good/5"}) {
        EXPECT_EQ(list(path), Names{"code 11"}) << path;
        EXPECT_EQ(codeOf([&] { provider_->createFolder(at(path + "new")); }), 7) << path;
    }
    EXPECT_EQ(list("/xml-denied/"), Names{"code 2"});
    EXPECT_EQ(codeOf([&] { provider_->createFolder(at("/xml-denied/new")); }), 2);
}

TEST_F(DavListing, BelievesAnAnswerThatTheMethodIsNotKnown) {
    EXPECT_EQ(provider_->exists(at("/dav-knows-no-propfind/file")), ExistsResult::Nothing);
    EXPECT_EQ(list("/dav-knows-no-propfind/"), Names{"code 11"});
    EXPECT_EQ(list("/xml-not-of-several-parts/"), Names{"code 11"});
    EXPECT_EQ(codeOf([&] { provider_->createFolder(at("/dav-knows-no-propfind/new")); }), 7);
}

// What is a file in any case needs no answer whether there are folders.
TEST_F(DavListing, AsksAsOfTheWebWhereTheServerDoesNotTellWhatItSpeaks) {
    for (std::string const how : {"reset", "400", "403", "500", "503"}) {
        std::string const root = "/dav-options-" + how + '/';
        std::size_t const before = asked("OPTIONS");
        EXPECT_EQ(provider_->exists(at(root + "readable")), ExistsResult::File) << how;
        EXPECT_EQ(provider_->exists(at(root + "missing")), ExistsResult::Nothing) << how;
        EXPECT_EQ(codeOf([&] { provider_->getCanonicalLocation(at(root + "readable")); }), -1)
            << how;
        // Once for a question that is asked after one that was in vain.
        EXPECT_LE(asked("OPTIONS") - before, 5U + (how == "reset" ? 2U : 0U)) << how;
        EXPECT_EQ(codeOf([&] { provider_->createFolder(at(root + "new")); }), how == "403" ? 2 : 9);
    }
}

// Else it would be taken for a file that can be read.
TEST_F(DavListing, KnowsAFolderOfAServerThatIsBusyForAWhile) {
    for (std::string const root : {"/dav-busy-at-first/", "/dav-resets-at-first/"}) {
        EXPECT_EQ(provider_->exists(at(root)), ExistsResult::Folder) << root;
        EXPECT_EQ(provider_->exists(at(root + "missing")), ExistsResult::Nothing) << root;
    }
}

TEST_F(DavListing, AsksAPlainServerOncePerFolder) {
    for (char const* const name : {"1", "2", "missing"}) {
        provider_->exists(at(std::string("/good/") + name));
    }
    EXPECT_EQ(asked("OPTIONS"), 1U);
}

TEST_F(DavListing, TellsOfFilesThatCanBeReadWhereWebDavIsClosed) {
    EXPECT_EQ(provider_->exists(at("/dav-is-closed/readable")), ExistsResult::File);
    EXPECT_EQ(provider_->getFileAttributes(at("/dav-is-closed/readable")).values().size, 5U);
    EXPECT_EQ(provider_->exists(at("/dav-is-closed/missing")), ExistsResult::Nothing);
    EXPECT_EQ(codeOf([&] { provider_->removeFile(at("/dav-is-closed/readable")); }), 2);
}

TEST_F(DavListing, TakesWhatOneItemIsRefusedForThatItemAlone) {
    for (std::string const name : {"private", "page", "cgi"}) {
        static_cast<void>(codeOf([&] { provider_->exists(at("/dav-mixed/" + name)); }));
        static_cast<void>(list("/dav-mixed/" + name));
        EXPECT_EQ(list("/dav-mixed"), Names{}) << name;
        static_cast<void>(codeOf([&] { provider_->exists(at("/dav-mixed/" + name)); }));
        EXPECT_EQ(codeOf([&] { provider_->createFolder(at("/dav-mixed/of-" + name.substr(1))); }),
                  -1)
            << name;
        provider_->removeFolder(at("/dav-mixed/of-" + name.substr(1)));
    }
}

TEST_F(DavListing, GoesByTheNamespacesAndNotByTheirPrefixes) {
    EXPECT_THAT(list("/xml-other-prefixes/"), ElementsAre("file"));
}

TEST_F(DavListing, ReadsXmlAsItComesAndPieceByPiece) {
    EXPECT_THAT(list("/xml-with-what-is-no-markup/"), ElementsAre("file"));
    Names const names = list("/xml-long/");
    ASSERT_EQ(names.size(), 2000U);
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(names[i], std::to_string(i));
    }
}

TEST_F(DavListing, ReadsXmlInTheEncodingThatItHas) {
    EXPECT_THAT(list("/xml-in-latin-1/"), ElementsAre("\xc3\xa4"));
    EXPECT_THAT(list("/xml-in-utf-16/"), ElementsAre("\xc3\xa4 \xf0\x9f\x98\x80"));
    EXPECT_THAT(list("/xml-in-utf-16-unmarked/"), ElementsAre("\xc3\xa4"));
    EXPECT_EQ(list("/xml-in-half-of-utf-16/"), Names{"code 9"});
}

TEST_F(DavListing, LeavesTheFolderItselfOutHoweverItIsWritten) {
    EXPECT_THAT(list("/xml-itself-last-and-absolute/"), ElementsAre("a file", "folder/"));
    EXPECT_THAT(list("/xml-itself-without-slash/"), ElementsAre("file"));
    EXPECT_THAT(list("/xml-itself-in-another-case/"), ElementsAre("file"));
    EXPECT_THAT(list("/xml-itself-alone-in-another-case/"), ElementsAre("file"));
    EXPECT_THAT(list("/xml-relative/"), ElementsAre("file", "folder/"));
}

TEST_F(DavListing, TellsOfAnItemThatTheServerNamesAsItIsKept) {
    write("/dav-knows-no-case/File", "four");
    write("/dav-knows-no-case/\xc3\x89", "five!");
    EXPECT_EQ(provider_->exists(at("/dav-knows-no-case/File")), ExistsResult::File);
    EXPECT_EQ(provider_->getFileAttributes(at("/dav-knows-no-case/FILE")).values().size, 4U);
    EXPECT_EQ(provider_->getFileAttributes(at("/dav-knows-no-case/\xc3\x89")).values().size, 5U);
    EXPECT_EQ(codeOf([&] { provider_->exists(at("/xml-of-something-else/file")); }), 9);
}

TEST_F(DavListing, OpensNoPageThatAServerShowsOfAFolder) {
    provider_->createFolder(at("/dav-shows-folders/folder"));
    EXPECT_EQ(codeOf([&] { provider_->openReadOnlyStream(at("/dav-shows-folders/folder")); }), 1);
}

// As of servers that know no case: what is not delivered would be lost with the folder.
TEST_F(DavListing, DeliversWhatIsInTheFolderHoweverTheServerWritesTheFolder) {
    EXPECT_THAT(list("/xml-items-in-another-case/"), ElementsAre("file"));
}

TEST_F(DavListing, DeliversNoNameThatLeadsOutOfTheFolder) {
    EXPECT_THAT(list("/xml-names-that-escape/"), ElementsAre("good", "%2e%2e"));
}

// Whoever moves a tree elsewhere removes it behind that, with all that was not delivered.
TEST_F(DavListing, IsRefusedWhereAnItemOfTheFolderCannotBeDelivered) {
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(list("/xml-unreadable-" + std::to_string(i) + '/'), Names{"code 9"}) << i;
    }
    EXPECT_EQ(list("/xml-unreadable-in-another-case/"), Names{"code 9"});
}

TEST_F(DavListing, TakesSeveralSlashesForOne) {
    EXPECT_THAT(list("/xml-slashes/"), ElementsAre("file", "folder/", "other"));
}

TEST_F(DavListing, DeliversEachNameOnce) {
    EXPECT_THAT(list("/xml-twice/"), ElementsAre("file"));
    EXPECT_EQ(list("/xml-of-two-kinds/"), Names{"code 9"});
    EXPECT_EQ(list("/xml-itself-of-two-kinds/"), Names{"code 9"});
}

TEST_F(DavListing, DeliversWithoutAttributesWhatItMayNotKnow) {
    EXPECT_THAT(list("/xml-failing-parts/"), ElementsAre("denied", "locked/", "file"));
    auto const entries = provider_->listAll(at("/xml-failing-parts/"), u"");
    entries->advance();
    EXPECT_FALSE(entries->currentEntry().getFileAttributes());
    entries->advance();
    EXPECT_FALSE(entries->currentEntry().getFolderAttributes());
    entries->advance();
    EXPECT_EQ(entries->currentEntry().getFileAttributes()->values().size, 5U);
}

TEST_F(DavListing, ReadsNumbersAndTimesAsTheyAreOrNotAtAll) {
    auto const entries = provider_->listAll(at("/xml-numbers/"), u"");
    std::vector<std::optional<std::uint64_t>> sizes;
    std::vector<std::int64_t> created;
    while (entries->hasNext()) {
        entries->advance();
        auto const values = entries->currentEntry().getFileAttributes()->values();
        sizes.push_back(values.size);
        created.push_back(values.created ? values.created->seconds : -1);
    }
    EXPECT_THAT(sizes,
                ElementsAre(18'446'744'073'709'551'615U, std::nullopt, std::nullopt, 7U, 8U));
    EXPECT_THAT(created, ElementsAre(1, 1, -1, 1, -1));
}

TEST_F(DavListing, RefusesXmlThatIsMeantToDoHarm) {
    EXPECT_EQ(list("/xml-bomb/"), Names{"code 9"});
    EXPECT_EQ(list("/xml-outside-entity/"), Names{"code 9"});
    EXPECT_EQ(list("/xml-many-attributes/"), Names{"code 9"});
    EXPECT_EQ(list("/xml-many-tags/"), Names{"code 5"});
    EXPECT_EQ(list("/xml-attributes-of-nothing/"), Names{"code 5"});
    EXPECT_EQ(list("/xml-tiny-items/"), Names{"code 5"});
    EXPECT_EQ(list("/xml-endless/"), Names{"code 5"});
}

TEST_F(DavListing, TakesNoMoreMemoryWhereOnePartNamesManyItems) {
    auto const memory = [] {
        rusage used{};
        ::getrusage(RUSAGE_SELF, &used);
        return used.ru_maxrss / 1024;
    };
    EXPECT_THAT(list("/xml-plain/"), ElementsAre("a file", "folder/"));
    long const before = memory();
    EXPECT_EQ(list("/xml-many-places/"), Names{"code 9"});
    EXPECT_LT(memory() - before, 100);
}

TEST_F(DavListing, TakesNoFolderForEmptyOfWhichItWasToldNothing) {
    for (std::string const lie :
         {"no-xml", "broken-off", "nothing", "another-root", "another-namespace",
          "without-namespace", "two-roots", "another-end", "more-behind", "empty",
          "of-something-else", "without-location", "without-state", "a-state-of-nonsense",
          "two-states"}) {
        EXPECT_EQ(list("/xml-" + lie + '/'), Names{"code 9"}) << lie;
        EXPECT_EQ(codeOf([&] { provider_->removeFolder(at("/xml-" + lie + '/')); }), 9) << lie;
    }
    EXPECT_EQ(list("/xml-itself-is-n\xc3\xb6t-told-of/"), Names{"code 9"});
    EXPECT_EQ(list("/xml-a-file/"), Names{"code 4"});
    EXPECT_EQ(list("/xml-in-an-own-status/"), Names{"code 2"});
}

TEST_F(DavListing, AsksAgainWhereAnAnswerBreaksOff) {
    EXPECT_THAT(list("/xml-breaks-off-once/"), ElementsAre("a file", "folder/"));
    EXPECT_EQ(asked("PROPFIND"), 2U);
}

TEST_F(DavListing, ShowsWhatTheCallerWantsToSee) {
    auto const count = [&](auto const& entries) {
        int number = 0;
        for (; entries->hasNext(); ++number) {
            entries->advance();
        }
        return number;
    };
    StorageIRI const folder = at("/xml-plain/");
    EXPECT_EQ(count(provider_->listFiles(folder, u"")), 1);
    EXPECT_EQ(count(provider_->listFolders(folder, u"")), 1);
    EXPECT_EQ(count(provider_->listAllNamesOnly(folder, u"a*")), 1);
    EXPECT_EQ(count(provider_->listFilesNamesOnly(folder, u"fo*")), 0);
    auto const names = provider_->listAllNamesOnly(folder, u"");
    names->advance();
    EXPECT_FALSE(names->currentEntry().getFileAttributes());
}

TEST_F(DavListing, TellsOfAnItemWhatTheServerTells) {
    provider_->createFolder(at("/dav-told/folder"));
    write("/dav-told/file", "four");
    EXPECT_EQ(provider_->exists(at("/dav-told/folder")), ExistsResult::Folder);
    EXPECT_EQ(provider_->exists(at("/dav-told/file")), ExistsResult::File);
    EXPECT_EQ(provider_->exists(at("/dav-told/file/below")), ExistsResult::Nothing);
    AttributeValues const values = provider_->getFileAttributes(at("/dav-told/file")).values();
    EXPECT_EQ(values.size, 4U);
    EXPECT_EQ(values.lastModified.seconds, 1'717'236'000);
    EXPECT_TRUE(values.writable);
    EXPECT_EQ(provider_->getFolderAttributes(at("/dav-told/folder")).values().size, std::nullopt);
    EXPECT_EQ(provider_->getExtendedAttributes(at("/dav-told/file")).at("http.etag"), "\"14\"");
    EXPECT_EQ(codeOf([&] { provider_->getFileAttributes(at("/dav-told/folder")); }), 1);
    EXPECT_EQ(codeOf([&] { provider_->getFolderAttributes(at("/dav-told/file")); }), 4);
    EXPECT_EQ(codeOf([&] { provider_->openReadOnlyStream(at("/dav-told/missing")); }), 4);
}

} // namespace
} // namespace foundation::storage::provider::http::test
