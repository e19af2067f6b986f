#include "child_process.hpp"
#include "listing_fixture.hpp"

#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <gmock/gmock.h>
#include <map>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LocalListing : public FlatListingTest {};

class LocalListingOfAllKinds : public FlatListingTest {
  protected:
    explicit LocalListingOfAllKinds(LocalOptions const& options = {}) : FlatListingTest(options) {
        makeFolder("all");
        makeFile("all/file", "12345");
        makeFile("all/read-only", "", 0444);
        makeFolder("all/folder", 0750);
        makeFile("all/folder/inner", "inside");
        makeLink("all/to file", "file");
        makeLink("all/to folder", "folder");
        makeLink("all/to nothing", "missing");
        makeLink("all/circle", "circle");
        makeFifo("all/fifo");
        makeSocket("all/socket");
        setTimes("all/file", {1, 2}, {3, 999'999'999});
        setTimes("all/to file", {5, 6}, {7, 8});
    }

    void makeSocket(std::string_view name) const {
        int const socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string const text = path(name);
        ASSERT_LT(text.size(), sizeof address.sun_path);
        std::memcpy(address.sun_path, text.c_str(), text.size());
        ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(socket);
    }
};

class LocalListingWithLinksFollowed : public LocalListingOfAllKinds {
  protected:
    LocalListingWithLinksFollowed() : LocalListingOfAllKinds({.followLinks = true}) {}
};

TEST_F(LocalListingOfAllKinds, EverythingThatIsNoFolderIsAFile) {
    for (auto const listing : {&IProvider::listAll, &IProvider::listAllNamesOnly}) {
        EXPECT_THAT(listed(list(listing, "all")),
                    ElementsAre("circle", "fifo", "file", "folder/", "read-only", "socket",
                                "to file", "to folder", "to nothing"));
    }
    for (auto const listing : {&IProvider::listFiles, &IProvider::listFilesNamesOnly}) {
        EXPECT_THAT(listed(list(listing, "all")),
                    ElementsAre("circle", "fifo", "file", "read-only", "socket", "to file",
                                "to folder", "to nothing"));
    }
    for (auto const listing : {&IProvider::listFolders, &IProvider::listFoldersNamesOnly}) {
        EXPECT_THAT(listed(list(listing, "all")), ElementsAre("folder/"));
    }
}

TEST_F(LocalListingOfAllKinds, AttributesAreThoseThatTheItemsHave) {
    std::map<std::string, std::string> const found = attributesIn(list(&IProvider::listAll, "all"));

    for (char const* name : {"file", "read-only", "fifo", "socket"}) {
        auto const values = provider_->getFileAttributes(at(std::string("all/") + name)).values();
        EXPECT_EQ(found.at(name), "file " + describe(values));
    }
    EXPECT_EQ(found.at("folder/"),
              "folder " + describe(provider_->getFolderAttributes(at("all/folder")).values()));
    EXPECT_EQ(attributesIn(list(&IProvider::listFolders, "all")).at("folder/"),
              found.at("folder/"));
    EXPECT_EQ(attributesIn(list(&IProvider::listFiles, "all")).at("file"), found.at("file"));
    EXPECT_THAT(found.at("file"), ::testing::HasSubstr("modified 3.999999999 accessed 1.2"));
    EXPECT_THAT(found.at("file"), ::testing::HasSubstr(" size 5 mode 420 writable"));
}

TEST_F(LocalListingOfAllKinds, ALinkHasItsOwnAttributes) {
    auto const found = attributesIn(list(&IProvider::listAll, "all"));

    EXPECT_THAT(found.at("to file"), ::testing::HasSubstr("modified 7.8 "));
    EXPECT_THAT(found.at("to file"), ::testing::HasSubstr(" size 4 mode 511 "));
    EXPECT_THAT(found.at("to folder"), ::testing::StartsWith("file "));
    EXPECT_THAT(found.at("to nothing"), ::testing::HasSubstr(" size 7 "));
}

TEST_F(LocalListingOfAllKinds, ListingsOfNamesDeliverNoAttributes) {
    for (auto const listing : {&IProvider::listAllNamesOnly, &IProvider::listFilesNamesOnly,
                               &IProvider::listFoldersNamesOnly}) {
        for (auto const& [name, attributes] : attributesIn(list(listing, "all"))) {
            EXPECT_EQ(attributes, "") << name;
        }
    }
}

TEST_F(LocalListingWithLinksFollowed, ALinkToAFolderIsAFolder) {
    std::vector<std::string> const expected{"circle",  "fifo",       "file",
                                            "folder/", "read-only",  "socket",
                                            "to file", "to folder/", "to nothing"};
    EXPECT_EQ(listed(list(&IProvider::listAll, "all")), expected);
    EXPECT_EQ(listed(names("all")), expected);
    for (auto const listing : {&IProvider::listFolders, &IProvider::listFoldersNamesOnly}) {
        EXPECT_THAT(listed(list(listing, "all")), ElementsAre("folder/", "to folder/"));
    }
    EXPECT_THAT(
        listed(list(&IProvider::listFilesNamesOnly, "all")),
        ElementsAre("circle", "fifo", "file", "read-only", "socket", "to file", "to nothing"));
}

TEST_F(LocalListingWithLinksFollowed, ALinkHasTheAttributesOfWhatItLeadsTo) {
    auto const found = attributesIn(list(&IProvider::listAll, "all"));

    EXPECT_EQ(found.at("to file"), found.at("file"));
    EXPECT_EQ(found.at("to folder/"), found.at("folder/"));
    EXPECT_THAT(found.at("to nothing"), ::testing::HasSubstr(" size 7 "));
    EXPECT_THAT(found.at("circle"), ::testing::HasSubstr(" size 6 "));
}

TEST_F(LocalListingOfAllKinds, AListedLinkToAFolderIsFollowed) {
    EXPECT_THAT(listed(names("all/to folder")), ElementsAre("inner"));
    EXPECT_THAT(listed(names("all/to folder/")), ElementsAre("inner"));
    EXPECT_THAT(listed(names("all/folder///")), ElementsAre("inner"));
}

TEST_F(LocalListingOfAllKinds, WhatCannotBeListedIsRefusedAtOnce) {
    struct {
        char const* name;
        ErrorCode code;
    } const refusals[] = {
        {"missing", ErrorCode::ResourceNotFound},
        {"missing/below", ErrorCode::ResourceNotFound},
        {"all/file", ErrorCode::ResourceNotFound},
        {"all/file/below", ErrorCode::ResourceNotFound},
        {"all/to file", ErrorCode::ResourceNotFound},
        {"all/to nothing", ErrorCode::ResourceNotFound},
        {"all/fifo", ErrorCode::ResourceNotFound},
        {"all/circle", ErrorCode::InvalidLocation},
    };
    for (auto const& [name, code] : refusals) {
        for (Listing const listing : flatListings) {
            EXPECT_TRUE(isRefused([&] { list(listing, name); }, code, at(name))) << name;
        }
    }
    StorageIRI const elsewhere(u"file://elsewhere/folder");
    EXPECT_TRUE(isRefused([&] { provider_->listAll(elsewhere, u""); }, ErrorCode::InvalidLocation,
                          elsewhere));
}

TEST_F(LocalListing, AFolderThatMayNotBeReadIsRefused) {
    makeFolder("closed", 0311);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        std::string codes;
        for (Listing const listing : flatListings) {
            auto const refusal = refusalOf([&] { list(listing, "closed"); });
            codes += refusal && refusal->code == ErrorCode::PermissionDenied &&
                             refusal->location == at("closed")
                         ? "denied "
                         : "other ";
        }
        return codes;
    });

    ASSERT_EQ(::chmod(path("closed").c_str(), 0755), 0);

    EXPECT_EQ(outcome, "denied denied denied denied denied denied ");
}

TEST_F(LocalListing, EntriesThatMayNotBeAskedComeWithoutAttributes) {
    makeFolder("unsearchable");
    makeFile("unsearchable/file");
    makeFolder("unsearchable/folder");
    ASSERT_EQ(::chmod(path("unsearchable").c_str(), 0644), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        std::string found;
        for (auto const& [name, attributes] :
             attributesIn(list(&IProvider::listAll, "unsearchable"))) {
            found += name + (attributes.empty() ? " without " : " with ");
        }
        return found;
    });
    ASSERT_EQ(::chmod(path("unsearchable").c_str(), 0755), 0);

    EXPECT_EQ(outcome, "file without folder/ without ");
}

TEST_F(LocalListing, AnEmptyFolderHasNoEntries) {
    makeFolder("empty");

    for (Listing const listing : flatListings) {
        Cursor const cursor = list(listing, "empty");
        EXPECT_FALSE(cursor->hasNext());
        EXPECT_FALSE(cursor->hasNext());
    }
}

TEST_F(LocalListing, LargeFoldersAreListedCompletely) {
    std::vector<std::string> const expected = makeMany("many");

    EXPECT_EQ(listed(names("many")), expected);
    EXPECT_EQ(listed(list(&IProvider::listAll, "many")), expected);
    EXPECT_EQ(listed(list(&IProvider::listFiles, "many")), expected);
    EXPECT_THAT(listed(list(&IProvider::listFolders, "many")), IsEmpty());
    EXPECT_EQ(attributesIn(list(&IProvider::listFiles, "many")).at(nameOf(711)),
              "file " + describe(provider_->getFileAttributes(at("many/" + nameOf(711))).values()));
}

TEST_F(LocalListingOfAllKinds, NamesAreListedWithoutAskingForTheirKind) {
    std::string const outcome = inChild([&] {
        injectFaults({{SYS_statx, 0, 0, EIO},
                      {SYS_newfstatat, 0, 0, EIO},
                      {SYS_stat, 0, 0, EIO},
                      {SYS_lstat, 0, 0, EIO},
                      {SYS_fstat, 0, 0, EIO}});
        return std::to_string(listed(names("all")).size()) + ' ' +
               listedLine(list(&IProvider::listFoldersNamesOnly, "all"));
    });

    EXPECT_EQ(outcome, "9 folder/");
}

TEST_F(LocalListingOfAllKinds, KindsThatTheFileSystemDoesNotTellAreAskedFor) {
    for (bool const follow : {false, true}) {
        std::string const outcome = inChild([&] {
            interceptCalls(SYS_getdents64, 0, 0, [](auto const* arguments) -> std::optional<long> {
                auto* const buffer = reinterpret_cast<char*>(arguments[1]);
                long const got = ::syscall(SYS_getdents64, arguments[0], buffer, arguments[2]);
                for (long at = 0; at < got;) {
                    auto* const record = reinterpret_cast<dirent64*>(buffer + at);
                    record->d_type = DT_UNKNOWN;
                    at += record->d_reclen;
                }
                return got < 0 ? -errno : got;
            });
            auto const provider = buildLocalProvider({.followLinks = follow});
            return listedLine(provider->listFoldersNamesOnly(at("all"), u"")) + " | " +
                   listedLine(provider->listFolders(at("all"), u"f*")) + " | " +
                   listedLine(provider->listAllNamesOnly(at("all"), u"?o*")) + " | " +
                   listedLine(provider->listAllRecursiveNamesOnly(at("all"), u"*n*")) + " | " +
                   listedLine(provider->listAllRecursive(at("all"), u"inner"));
        });
        EXPECT_EQ(outcome,
                  follow ? "folder/ to folder/ | folder/ | folder/ socket to file to folder/ to "
                           "nothing | folder/inner read-only to folder/inner to nothing | "
                           "folder/inner to folder/inner"
                         : "folder/ | folder/ | folder/ socket to file to folder to nothing | "
                           "folder/inner read-only to nothing | folder/inner");
    }
}

TEST_F(LocalListing, NamesThatNoItemCanHaveAreNotDelivered) {
    makeFile("good");

    std::string const outcome = inChild([&] {
        int calls = 0;
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            if (calls++ != 0) {
                return 0;
            }
            auto* const buffer = reinterpret_cast<char*>(arguments[1]);
            long size = 0;
            for (std::string const name : {"", ".", "..", "a/b", "/", "../up", "good", "..."}) {
                dirent64 record{};
                record.d_reclen = static_cast<unsigned short>(
                    (offsetof(dirent64, d_name) + name.size() + 8) / 8 * 8);
                record.d_type = DT_REG;
                std::memcpy(record.d_name, name.c_str(), name.size() + 1);
                std::memcpy(buffer + size, &record, record.d_reclen);
                size += record.d_reclen;
            }
            return size;
        });
        return listedLine(names());
    });

    EXPECT_EQ(outcome, "... good");
}

TEST_F(LocalListing, NamesSurviveAsTheyAre) {
    std::vector<std::string> const spellings =
        sorted({"caf\xc3\xa9", "cafe\xcc\x81", "caf\xe9", "\xff", "two\nlines", "\xed\xa0\x80",
                "%41", "\xf0\x9f\x98\x80", "...", " ", "back\\slash", std::string(255, 'n')});
    for (std::string const& name : spellings) {
        makeFile(name);
    }

    EXPECT_EQ(listed(names()), spellings);
    Cursor const cursor = names();
    while (cursor->hasNext()) {
        cursor->advance();
        StorageIRI const item(at(""), cursor->currentEntry().getName());
        EXPECT_TRUE(provider_->fileExists(item)) << item;
    }
}

TEST_F(LocalListing, PatternsAreThoseOfTheOneMatcher) {
    makeFolder("all");
    for (char const* name : {"a", "ab", "b", "a.txt", ".txt", "a.", "AB", "caf\xc3\xa9", "caf\xe9",
                             "\xf0\x9f\x98\x80", "star*", "what?", "...", "a b"}) {
        makeFile(std::string("all/") + name);
        makeFolder(std::string("all/") + name + "-folder");
    }
    for (fl::i18n::ustring const pattern :
         {u"*", u"**", u"a*", u"a**", u"*.txt", u"*.*", u"a?", u"?", u"??", u"AB", u"caf?", u"*r",
          u"a/b", u"nothing", u"*-folder", u"caf\xDCE9", u".", u"*?", u"star\x2a"}) {
        for (Listing const listing : flatListings) {
            EXPECT_EQ(listed(list(listing, "all", pattern)),
                      matching(listed(list(listing, "all")), pattern));
        }
    }
}

TEST_F(LocalListing, APatternThatNearlyNothingMatchesFindsItInALargeFolder) {
    makeMany("many");
    makeFolder("many/the folder");

    EXPECT_THAT(listed(list(&IProvider::listAll, "many", u"* 711")), ElementsAre(nameOf(711)));
    EXPECT_THAT(listed(list(&IProvider::listAllNamesOnly, "many", u"* 711")),
                ElementsAre(nameOf(711)));
    EXPECT_THAT(listed(list(&IProvider::listFoldersNamesOnly, "many")), ElementsAre("the folder/"));
    EXPECT_FALSE(list(&IProvider::listAll, "many", u"nothing")->hasNext());
}

TEST_F(LocalListing, AFailureOfAttributesIsNone) {
    makeFile("file");
    makeFolder("folder");

    std::string const outcome = inChild([&] {
        injectFaults({{SYS_statx, 0, 0, EIO}});
        std::string found;
        for (auto const& [name, attributes] : attributesIn(list(&IProvider::listAll))) {
            found += name + (attributes.empty() ? " without " : " with ");
        }
        return found;
    });

    EXPECT_EQ(outcome, "file without folder/ without ");
}

TEST_F(LocalListing, FoldersBeyondTheKernelsLimitAreListed) {
    std::string deep = path("deep");
    for (int i = 0; i < 60; ++i) {
        deep += "/" + std::string(100, static_cast<char>('a' + i % 26));
    }
    StorageIRI const location = fromLocalPath(deep);
    provider_->createFolderRecursive(location);
    provider_->createFile(StorageIRI(location, u"file"));

    EXPECT_THAT(listed(provider_->listAll(location, u"")), ElementsAre("file"));
}

} // namespace
} // namespace foundation::storage::provider::local::test
