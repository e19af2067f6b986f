#include "watch_fixture.hpp"

#include "child_process.hpp"

#include <foundation/storage/provider/local_path.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <random>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What is in one of two sorted ranges only.
template<class Range>
Range differences(Range const& a, Range const& b) {
    Range result;
    std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(),
                                  std::inserter(result, result.end()));
    return result;
}

class LocalTreeWatch : public LocalWatchTest {
  protected:
    void makeFolders(std::string_view name) const {
        std::filesystem::create_directories(path(name));
    }
};

TEST_F(LocalTreeWatch, WhatHappensAtAnyDepthIsReportedWithItsFolder) {
    makeFolders("w/a/b");
    publishTree("w", namesOnly);

    makeFile("w/a/b/file");

    EXPECT_THAT(reports(), ElementsAre("+ file w/a/b/file"));
    EXPECT_EQ(log_.changes().front().watched, "w/a/b");
}

TEST_F(LocalTreeWatch, ChildrenOfThePublishedFolderEchoItsLocation) {
    StorageIRI const given(u"file://localhost" + at("w").getPath() + u"/");
    provider_->publishFolderEvents(given, log_.callback(), namesOnly,
                                   RecursiveFileWatching::Recursive);
    makeFile("w/file");

    ASSERT_TRUE(log_.waitForEntry(Kind::Created, "w/file"));
    std::string const text(given.toString().begin(), given.toString().end());
    EXPECT_EQ(log_.changes().front().watchedText, text);
}

TEST_F(LocalTreeWatch, ASubfoldersOwnChangeIsReportedOnce) {
    makeFolders("w/a");
    publishTree();

    ASSERT_EQ(::chmod(path("w/a").c_str(), 0700), 0);

    EXPECT_THAT(reports(), ElementsAre("~ folder w/a"));
}

TEST_F(LocalTreeWatch, FoldersThatAppearAreWatched) {
    publishTree("w", namesOnly);

    makeFolders("w/a/b/c");
    settle();
    makeFile("w/a/b/c/file");

    EXPECT_THAT(reports(), ElementsAre("+ folder w/a", "+ folder w/a/b", "+ folder w/a/b/c",
                                       "+ file w/a/b/c/file"));
}

TEST_F(LocalTreeWatch, AFileMadeAtOnceInANewFolderIsNeverMissedAndReportedOnce) {
    publishTree("w", namesOnly);
    std::vector<std::string> expected;
    for (int number = 0; number < 1000; ++number) {
        std::string const name = "w/" + std::to_string(number);
        ASSERT_EQ(::mkdir(path(name).c_str(), 0755), 0);
        std::ofstream(path(name + "/file")).put('x');
        expected.push_back("+ folder " + name);
        expected.push_back("+ file " + name + "/file");
    }

    auto found = reports();

    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    EXPECT_THAT(differences(found, expected), IsEmpty());
}

TEST_F(LocalTreeWatch, ATreeThatIsMovedInIsReportedWhole) {
    makeFolders("t/a/b");
    makeFile("t/a/b/file");
    publishTree("w", namesOnly);

    rename("t", "w/t");
    settle();
    makeFile("w/t/a/b/later");

    EXPECT_THAT(reports(), ElementsAre("+ folder w/t", "+ folder w/t/a", "+ folder w/t/a/b",
                                       "+ file w/t/a/b/file", "+ file w/t/a/b/later"));
}

TEST_F(LocalTreeWatch, AFolderThatIsMovedOutIsNotWatchedAnyMore) {
    makeFolders("w/a/b");
    publishTree("w", namesOnly);

    rename("w/a", "a");
    settle();
    makeFile("a/b/unseen");

    EXPECT_THAT(reports(), ElementsAre("- folder w/a"));
}

TEST_F(LocalTreeWatch, AFolderThatIsMovedWithinGoesOnUnderItsNewName) {
    makeFolders("w/a/b");
    makeFolders("w/c");
    publishTree("w", namesOnly);

    rename("w/a", "w/c/d");
    makeFile("w/c/d/b/file");
    rename("w/c", "w/e");
    makeFile("w/e/d/b/other");

    EXPECT_THAT(reports(),
                ElementsAre("- folder w/a -> w/c/d", "+ folder w/c/d <- w/a", "+ file w/c/d/b/file",
                            "- folder w/c -> w/e", "+ folder w/e <- w/c", "+ file w/e/d/b/other"));
}

TEST_F(LocalTreeWatch, AFolderThatIsMovedOverAnEmptyOneTakesItsPlace) {
    makeFolders("w/a/b");
    makeFolders("w/empty");
    publishTree("w", namesOnly);

    rename("w/a", "w/empty");
    settle();
    makeFile("w/empty/b/file");

    EXPECT_THAT(reports(), ElementsAre("- folder w/a -> w/empty", "+ folder w/empty <- w/a",
                                       "+ file w/empty/b/file"));
}

TEST_F(LocalTreeWatch, LinksAreNotEntered) {
    makeFolders("elsewhere");
    publishTree("w", namesOnly);

    makeLink("w/link", path("elsewhere"));
    settle();
    makeFile("elsewhere/file");

    EXPECT_THAT(reports(), ElementsAre("+ file w/link"));
}

TEST_F(LocalTreeWatch, ALinkToAFolderAboveIsNoWayAround) {
    makeLink("w/up", "..");
    publishTree("w", namesOnly);

    makeFile("w/file");

    EXPECT_THAT(reports(), ElementsAre("+ file w/file"));
}

TEST_F(LocalTreeWatch, AnOverlappingPublicationKeepsWhatItNeeds) {
    makeFolders("w/a/b");
    publishTree("w/a", namesOnly);
    publishTree("w", namesOnly);

    provider_->stopPublishingFolderEvents(at("w"));
    makeFile("w/a/b/file");

    EXPECT_THAT(reports("w/a"), ElementsAre("+ file w/a/b/file"));
}

TEST_F(LocalTreeWatch, TwoPublicationsAreToldOfOneChangeEach) {
    makeFolders("w/a");
    publishTree("w", namesOnly);
    publish("w/a", namesOnly);

    makeFile("w/a/file");

    EXPECT_THAT(reports(), ElementsAre("+ file w/a/file", "+ file w/a/file"));
}

TEST_F(LocalTreeWatch, AMoveBetweenTwoPublicationsIsARemovalAndACreation) {
    makeFolders("w/a");
    makeFolders("w/b");
    makeFile("w/a/file");
    publish("w/a", namesOnly);
    publish("w/b", namesOnly);

    rename("w/a/file", "w/b/file");

    EXPECT_THAT(reports("w/b"), ElementsAre("- file w/a/file", "+ file w/b/file"));
}

TEST_F(LocalTreeWatch, ATreeThatIsRemovedAndMadeAgainIsGoneOnWith) {
    makeFolders("w/a");
    publishTree("w", namesOnly);

    remove("w");
    ASSERT_TRUE(log_.waitForEntry(Kind::Removed, "w"));
    makeFolders("next/a");
    makeFile("next/a/file");
    rename("next", "w");
    settle();
    makeFile("w/a/later");

    EXPECT_THAT(reports(), ElementsAre("- folder w/a", "- folder w", "+ folder w", "+ folder w/a",
                                       "+ file w/a/file", "+ file w/a/later"));
}

TEST_F(LocalTreeWatch, AFolderThatBecomesReadableIsWatched) {
    makeFolders("w/denied");
    makeFile("w/denied/file");
    ASSERT_EQ(::chmod(path("w/denied").c_str(), 0), 0);
    ASSERT_EQ(::chmod(path("w").c_str(), 0777), 0);

    EXPECT_EQ(inChild([&]() -> std::string {
                  // The process that may not read it is not the one that opens it.
                  int gate[2];
                  if (::pipe(gate) != 0) {
                      return "no pipe";
                  }
                  pid_t const owner = ::fork();
                  if (owner == 0) {
                      char byte = 0;
                      bool const told = ::read(gate[0], &byte, 1) == 1;
                      ::_exit(told && ::chmod(path("w/denied").c_str(), 0777) == 0 ? 0 : 1);
                  }
                  becomeUnprivileged();
                  publishTree("w", namesOnly);
                  if (::write(gate[1], "x", 1) != 1) {
                      return "no write";
                  }
                  return log_.waitForEntry(Kind::Created, "w/denied/file") ? "watched" : "unseen";
              }),
              "watched");
}

TEST_F(LocalTreeWatch, AVeryDeepTreeIsWatchedToItsEnd) {
    std::string deep = "w";
    ASSERT_EQ(::chdir(path("w").c_str()), 0);
    for (int level = 0; level < 1000; ++level) {
        ASSERT_EQ(::mkdir("folder", 0755), 0);
        ASSERT_EQ(::chdir("folder"), 0);
        deep += "/folder";
    }
    publishTree("w", namesOnly);

    ASSERT_EQ(::mkdir("new", 0755), 0); // its path is longer than the kernel takes
    ASSERT_EQ(::mkdir("new/inner", 0755), 0);

    EXPECT_TRUE(log_.waitForEntry(Kind::Created, deep + "/new/inner"));
    ASSERT_EQ(::chdir("/"), 0);
    provider_->removeFolderRecursively(at("w"));
    EXPECT_TRUE(log_.waitForEntry(Kind::Removed, "w"));
}

TEST_F(LocalTreeWatch, AWatchedFolderTakesLittleMemory) {
    constexpr int folders = 10'000;
    for (int number = 0; number < folders; ++number) {
        std::string const above = "w/folder" + std::to_string(number / 100);
        if (number % 100 == 0) {
            makeFolder(above);
        } else {
            ASSERT_EQ(::mkdir(path(above + "/subfolder" + std::to_string(number)).c_str(), 0755),
                      0);
        }
    }
    auto const before = ::mallinfo2().uordblks;
    if (before == 0) {
        GTEST_SKIP() << "this allocator does not tell what it has given out";
    }

    publishTree();

    auto const taken = (::mallinfo2().uordblks - before) / folders;
    EXPECT_GT(taken, 0U);
    EXPECT_LE(taken, 400U);
}

TEST_F(LocalTreeWatch, WhatShowsAgainBehindAMountIsAnOverflow) {
    if (!mayMount()) {
        GTEST_SKIP() << "mounting is not permitted here";
    }
    makeFolders("w/mounted/below");

    EXPECT_EQ(inChild([&]() -> std::string {
                  if (!mountMemory(path("w/mounted"), "1m")) {
                      return "not mounted";
                  }
                  publishTree("w", namesOnly);
                  makeFile("w/mounted/file");
                  if (!log_.waitForEntry(Kind::Created, "w/mounted/file")) {
                      return "not watched";
                  }
                  if (::umount2(path("w/mounted").c_str(), MNT_DETACH) != 0) {
                      return "not unmounted";
                  }
                  if (!log_.waitForOverflow()) {
                      return "not told";
                  }
                  makeFile("w/mounted/below/file");
                  return log_.waitForEntry(Kind::Created, "w/mounted/below/file") ? "watched"
                                                                                  : "unseen";
              }),
              "watched");
}

TEST_F(LocalTreeWatch, MassChangesGiveTheViewOfTheDisk) {
    log_.keepView([&](auto const& top) { return disk(top); });
    publishTree("w", namesOnly);
    std::mt19937 random(7);
    auto const some = [&](unsigned limit) { return std::to_string(random() % limit); };
    for (int step = 0; step < 20'000; ++step) {
        std::string const folder = "w/" + some(20) + "/" + some(20);
        std::string const name = folder + "/" + some(5);
        std::error_code ignored;
        switch (random() % 8) {
        case 0:
        case 1:
        case 2:
            std::filesystem::create_directories(path(folder), ignored);
            std::ofstream(path(name)).put('x');
            break;
        case 3:
            std::filesystem::remove(path(name), ignored);
            break;
        case 4:
            std::filesystem::rename(path(name), path("w/" + some(20) + "/" + some(20)), ignored);
            break;
        case 5:
            std::filesystem::rename(path(folder), path("w/" + some(20) + "/" + some(20)), ignored);
            break;
        case 6:
            std::filesystem::rename(path("w/" + some(20)), path("w/" + some(20) + "/" + some(20)),
                                    ignored);
            break;
        default:
            if (random() % 8 == 0) {
                std::filesystem::remove_all(path("w/" + some(20)), ignored);
            }
        }
    }
    settle();
    settle();

    EXPECT_THAT(differences(log_.view(), disk()), IsEmpty());
}

} // namespace

} // namespace foundation::storage::provider::local::test
