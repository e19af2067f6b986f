#include "child_process.hpp"
#include "deep_tree.hpp"
#include "removal_fixture.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

class LocalRemoval : public RemovalTest {};

TEST_F(LocalRemoval, ATreeGoesAndNothingBesideIt) {
    for (unsigned const seed : {1U, 2U, 3U}) {
        makeTree("tree", seed);
        makeFile("tree beside");
        makeFolder("tre");
        std::size_t const before = openDescriptors();

        remove("tree");

        EXPECT_EQ(names(""), (Names{"tre", "tree beside"}));
        EXPECT_EQ(openDescriptors(), before);
        std::filesystem::remove(path("tree beside"));
        std::filesystem::remove(path("tre"));
    }
}

TEST_F(LocalRemoval, AnEmptyFolderGoes) {
    makeFolder("empty");
    makeFolder("closed", 0);

    remove("empty");
    remove("closed");

    EXPECT_EQ(names(""), Names());
}

TEST_F(LocalRemoval, ATrailingSlashChangesNothing) {
    makeTree("tree", 4);

    provider_->removeFolderRecursively(fromLocalPath(path("tree/")));

    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemoval, WhatIsNoFolderIsAnsweredAsByTheRemovalOfAnEmptyOne) {
    makeFile("file", "content");
    makeFifo("fifo");
    makeFolder("folder");
    makeFile("folder/inner", "inside");
    makeLink("link to file", "file");
    makeLink("link to folder", "folder");
    makeLink("link to nothing", "nothing");
    makeLink("circle", "circle");
    Names const there = names("");

    for (std::string const name :
         {"file", "fifo", "link to file", "link to folder", "link to nothing", "circle", "missing",
          "missing/child", "file/child", "circle/child", "link to nothing/child"}) {
        auto const expected = refusalOf([&] { provider_->removeFolder(at(name)); });
        ASSERT_TRUE(expected) << name;
        EXPECT_TRUE(isRefused([&] { remove(name); }, expected->code, expected->location)) << name;
    }

    EXPECT_TRUE(isRefused([&] { remove("missing"); }, ErrorCode::ResourceNotFound, at("missing")));
    EXPECT_TRUE(isRefused([&] { remove("link to folder"); }, ErrorCode::ResourceNotFound,
                          at("link to folder")));
    EXPECT_EQ(names(""), there);
    EXPECT_EQ(content("folder/inner"), "inside");
}

TEST_F(LocalRemoval, WhereLinksAreFollowedALinkToAFolderGoesAndTheFolderStays) {
    makeFolder("folder");
    makeFile("folder/inner", "inside");
    makeLink("link", "folder");
    makeFolder("tree");
    makeLink("tree/link", path("folder"));
    auto const following = buildLocalProvider({.followLinks = true});

    following->removeFolderRecursively(at("link"));
    following->removeFolderRecursively(at("tree"));

    EXPECT_EQ(names(""), Names{"folder"});
    EXPECT_EQ(content("folder/inner"), "inside");
}

TEST_F(LocalRemoval, TheRootOfAllIsInUse) {
    // In a process that could not, in case it is not refused.
    std::string const outcome = inChild([] {
        becomeUnprivileged();
        auto const provider = buildLocalProvider({});
        std::string codes;
        for (char16_t const* const text : {u"file:/", u"file:///", u"file:////"}) {
            StorageIRI const location(text);
            codes += isRefused([&] { provider->removeFolderRecursively(location); },
                               ErrorCode::ResourceInUse, location)
                         ? "in use "
                         : "? ";
        }
        return codes;
    });

    EXPECT_EQ(outcome, "in use in use in use ");
}

TEST_F(LocalRemoval, AWayThatEndsInDotsNamesNoEntry) {
    makeFolder("tree");
    makeFolder("tree/inner");
    makeFile("tree/inner/file");

    for (std::string const name :
         {"tree/.", "tree/..", "tree/inner/..", "tree/inner/../", "tree/./", "tree/inner/."}) {
        StorageIRI const location(fl::i18n::to_ustring("file:" + path(name)));
        EXPECT_TRUE(isRefused([&] { provider_->removeFolderRecursively(location); },
                              ErrorCode::InvalidLocation, location))
            << name;
    }
    EXPECT_TRUE(isThere("tree/inner/file"));
}

TEST_F(LocalRemoval, DotsOnTheWayAreTheKernels) {
    makeFolder("tree");
    makeFolder("tree/inner");
    makeFolder("beside");

    provider_->removeFolderRecursively(
        StorageIRI(fl::i18n::to_ustring("file:" + path("beside/../tree/./inner"))));

    EXPECT_EQ(names("tree"), Names());
    EXPECT_TRUE(isThere("beside"));
}

TEST_F(LocalRemoval, LinksGoAndWhatTheyLeadToStays) {
    makeFolder("folder");
    makeFile("folder/inner", "inside");
    makeFile("file", "content");
    makeFolder("tree");
    makeFolder("tree/below");
    for (std::string const folder : {"tree", "tree/below"}) {
        makeLink(folder + "/to file", path("file"));
        makeLink(folder + "/to folder", path("folder"));
        makeLink(folder + "/to folder from here", folder == "tree" ? "../folder" : "../../folder");
        makeLink(folder + "/to nothing", "nothing");
        makeLink(folder + "/to itself", "to itself");
        makeLink(folder + "/up", "..");
        makeLink(folder + "/top", "/");
    }

    remove("tree");

    EXPECT_EQ(names(""), (Names{"file", "folder"}));
    EXPECT_EQ(content("folder/inner"), "inside");
    EXPECT_EQ(content("file"), "content");
}

TEST_F(LocalRemoval, ALinkOnTheWayToTheTreeIsFollowed) {
    makeFolder("folder");
    makeFolder("folder/tree");
    makeFile("folder/tree/file");
    makeFile("folder/beside");
    makeLink("link", "folder");

    remove("link/tree");

    EXPECT_EQ(names("folder"), Names{"beside"});
    EXPECT_TRUE(isThere("link"));
}

TEST_F(LocalRemoval, FifosAndSocketsGoUnopened) {
    makeFolder("tree");
    makeFifo("tree/fifo");
    int const socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path("tree/socket").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    ::close(socket);

    remove("tree");

    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemoval, DevicesGo) {
    makeFolder("tree");
    if (::mknod(path("tree/device").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0) {
        GTEST_SKIP() << "reason: needs the right to make devices";
    }

    remove("tree");

    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemoval, ASecondNameOfAFileElsewhereStays) {
    makeFile("file", "content");
    makeFolder("tree");
    ASSERT_EQ(::link(path("file").c_str(), path("tree/second").c_str()), 0);

    remove("tree");

    EXPECT_EQ(content("file"), "content");
    EXPECT_EQ(status("file").st_nlink, 1U);
}

TEST_F(LocalRemoval, ReadOnlyFilesGoAsTheirFolderAllows) {
    makeFolder("tree");
    makeFile("tree/read-only", "content", 0444);
    makeFile("tree/closed", "content", 0);
    ASSERT_EQ(::chmod(path("tree").c_str(), 0777), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        remove("tree");
        return std::string("removed");
    });

    EXPECT_EQ(outcome, "removed");
    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemoval, NamesThatAreNotUtf8Go) {
    makeFolder("tree");
    for (std::string const name : {"\xFF", "caf\xE9", "caf\xC3\xA9", "\xED\xA0\x80", "a\nb", "%41",
                                   "!", "?#", " ", "\\", "..."}) {
        makeFolder("tree/" + name);
        makeFile("tree/" + name + "/" + name);
    }

    remove("tree");

    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemoval, AHundredThousandFilesInOneFolderGo) {
    TemporaryFolder const place(placeForMany(path("")));
    int const folder = ::open(place.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::mkdirat(folder, "flat", 0755), 0);
    int const flat = ::openat(folder, "flat", O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < 100'000; ++i) {
        ASSERT_EQ(::mknodat(flat, std::to_string(i).c_str(), S_IFREG | 0644, 0), 0);
    }
    ::close(flat);
    ::close(folder);

    provider_->removeFolderRecursively(fromLocalPath(place.path() + "/flat"));

    EXPECT_FALSE(std::filesystem::exists(place.path() + "/flat"));
}

TEST_F(LocalRemoval, AFolderOfManyFoldersGoes) {
    makeFolder("tree");
    for (int i = 0; i < 3000; ++i) { // names of several buffers
        std::string const folder = "tree/" + std::string(30, 'n') + std::to_string(i);
        makeFolder(folder);
        if (i % 3 == 0) {
            makeFile(folder + "/file");
        }
    }

    remove("tree");

    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemoval, TwentyThousandLevelsNeedFewDescriptors) {
    constexpr unsigned levels = 20'000;
    for (bool const pairs : {false, true}) {
        DeepTree const tree(path(""), levels, pairs);
        std::string const outcome = inChild([&] {
            rlimit const few{64, 64};
            ::setrlimit(RLIMIT_NOFILE, &few);
            std::size_t const before = openDescriptors();
            provider_->removeFolderRecursively(tree.location());
            return std::string(openDescriptors() == before ? "none left" : "some left");
        });
        EXPECT_EQ(outcome, "none left");
        EXPECT_FALSE(std::filesystem::exists(tree.path()));
    }
}

TEST_F(LocalRemoval, ThreeDescriptorsAreEnough) {
    makeTree("tree", 5);

    std::string const outcome = inChild([&] {
        int free[3];
        for (int& descriptor : free) {
            descriptor = ::open("/", O_PATH | O_CLOEXEC);
        }
        rlimit const three{static_cast<rlim_t>(free[2]) + 1, 64};
        for (int const descriptor : free) {
            ::close(descriptor);
        }
        ::setrlimit(RLIMIT_NOFILE, &three);
        return removing("tree");
    });

    EXPECT_EQ(outcome, "removed");
    EXPECT_FALSE(isThere("tree"));
}

TEST_F(LocalRemoval, ATreeFurtherDownThanThePathsOfTheKernelGoes) {
    std::string deep = "deep";
    for (int i = 0; i < 60; ++i) {
        deep += "/" + std::string(100, static_cast<char>('a' + i % 26));
    }
    ASSERT_GT(path(deep).size(), 6000U);
    provider_->createFolderRecursive(at(deep + "/tree/inner"));
    provider_->createFile(at(deep + "/tree/file"));
    provider_->createFile(at(deep + "/beside"));

    remove(deep + "/tree");

    EXPECT_EQ(provider_->exists(at(deep + "/tree")), ExistsResult::Nothing);
    EXPECT_EQ(provider_->exists(at(deep + "/beside")), ExistsResult::File);
    remove("deep");
    EXPECT_FALSE(isThere("deep"));
}

TEST_F(LocalRemoval, RemovingTwiceFindsNothingTheSecondTime) {
    makeTree("tree", 6);

    remove("tree");

    EXPECT_TRUE(isRefused([&] { remove("tree"); }, ErrorCode::ResourceNotFound, at("tree")));
}

} // namespace
} // namespace foundation::storage::provider::local::test
