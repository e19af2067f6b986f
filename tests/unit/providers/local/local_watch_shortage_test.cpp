#include "watch_fixture.hpp"

#include "child_process.hpp"

#include <foundation/storage/provider/exception.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception_ptr.hpp>
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <system_error>

namespace foundation::storage::provider::local::test {

namespace {

using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Eq;

/// Too few watches or descriptors, at the start and later.
class LocalWatchShortage : public LocalWatchTest {
  protected:
    std::size_t told(std::string const& line) const {
        auto const lines = log_.lines();
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }
    bool waitFor(std::string const& line, std::size_t times) const {
        return log_.waitUntil([&] { return told(line) >= times; });
    }
};

/// In a user namespace of its own, which has limits of its own. False where that is not permitted.
bool limit(char const* what, int number) {
    static bool const isAlone = ::unshare(CLONE_NEWUSER) == 0;
    if (!isAlone) {
        return false;
    }
    std::ofstream file(std::string("/proc/sys/user/") + what);
    file << number << std::flush;
    return file.good();
}

/// The folders from the root to the test's own, which take a watch each.
int foldersAbove(std::string const& path) {
    return static_cast<int>(std::count(path.begin(), path.end(), '/')) + 1;
}

bool mayLimit() {
    return inChild([] { return std::string(limit("max_inotify_watches", 10) ? "yes" : "no"); }) ==
           "yes";
}

/// The error number inside the refusal of a publication, 0 where it was not refused.
int limitMet(std::function<void()> const& publish) {
    try {
        publish();
    } catch (ChangeEventsSubscriptionException const& e) {
        auto const* const cause = boost::get_error_info<boost::errinfo_nested_exception>(e);
        if (cause == nullptr) {
            return -1;
        }
        try {
            boost::rethrow_exception(*cause);
        } catch (std::system_error const& reason) {
            return reason.code().value();
        }
    }
    return 0;
}

TEST_F(LocalWatchShortage, ATreeWithMoreFoldersThanTheLimitIsRefusedWhole) {
    if (!mayLimit()) {
        GTEST_SKIP() << "no user namespaces here";
    }
    for (int number = 0; number < 10; ++number) {
        makeFolder("w/" + std::to_string(number));
    }

    EXPECT_EQ(inChild([&]() -> std::string {
                  limit("max_inotify_watches", foldersAbove(path("")) + 3);
                  std::size_t const before = openDescriptors();
                  if (limitMet([&] { publishTree(); }) != ENOSPC) {
                      return "not refused";
                  }
                  if (openDescriptors() != before || !noWatchThreadIsLeft()) {
                      return "left something behind";
                  }
                  publish("w", namesOnly); // for which there is room, if the rest is free
                  if (limitMet([&] { publishTree(); }) != ENOSPC) {
                      return "not refused beside another";
                  }
                  publish("w/1", namesOnly); // takes one more
                  return log_.changes().empty() ? "refused" : "told something";
              }),
              "refused");
}

TEST_F(LocalWatchShortage, NoMoreInstancesIsARefusal) {
    if (!mayLimit()) {
        GTEST_SKIP() << "no user namespaces here";
    }
    EXPECT_EQ(inChild([&]() -> std::string {
                  limit("max_inotify_instances", 0);
                  return limitMet([&] { publish(); }) == EMFILE ? "refused" : "published";
              }),
              "refused");
}

TEST_F(LocalWatchShortage, ATreeThatOutgrowsTheLimitIsToldAndMadeGoodWhenThereIsRoom) {
    if (!mayLimit()) {
        GTEST_SKIP() << "no user namespaces here";
    }
    EXPECT_EQ(inChild([&]() -> std::string {
                  limit("max_inotify_watches", foldersAbove(path("")) + 5);
                  publishTree("w", namesOnly);
                  for (int number = 0; number < 10; ++number) {
                      makeFolder("w/" + std::to_string(number));
                  }
                  if (!log_.waitForOverflow()) {
                      return "not told";
                  }
                  settle();
                  log_.clear();
                  for (int number = 0; number < 8; ++number) {
                      remove("w/" + std::to_string(number));
                  }
                  if (!log_.waitForOverflow()) {
                      return "not told of what was missed";
                  }
                  settle();
                  makeFile("w/8/file");
                  makeFile("w/9/file");
                  return log_.waitForEntry(Kind::Created, "w/8/file") &&
                                 log_.waitForEntry(Kind::Created, "w/9/file")
                             ? "made good"
                             : "not made good";
              }),
              "made good");
}

TEST_F(LocalWatchShortage, AFolderThatCannotBeWatchedWhenItIsBackIsTriedAgain) {
    if (!mayLimit()) {
        GTEST_SKIP() << "no user namespaces here";
    }
    EXPECT_EQ(inChild([&]() -> std::string {
                  limit("max_inotify_watches", foldersAbove(path("")) + 1);
                  publish("w", namesOnly);
                  limit("max_inotify_watches", 1);
                  remove("w");
                  makeFolder("w");
                  makeFile("w/early");
                  if (!waitFor("! folder w", 1)) {
                      return "not told";
                  }
                  limit("max_inotify_watches", 100);
                  if (!waitFor("! folder w", 2)) {
                      return "not tried again";
                  }
                  makeFile("w/late");
                  bool const isTold = log_.waitForEntry(Kind::Created, "w/early") &&
                                      log_.waitForEntry(Kind::Created, "w/late");
                  return isTold && told("+ folder w") == 1 ? "watched" : "unseen";
              }),
              "watched");
}

TEST_F(LocalWatchShortage, FoldersThatGoAtTheLimitAreNotToldOfOneByOne) {
    if (!mayLimit()) {
        GTEST_SKIP() << "no user namespaces here";
    }
    EXPECT_EQ(inChild([&]() -> std::string {
                  constexpr int room = 50;
                  limit("max_inotify_watches", foldersAbove(path("")) + room);
                  publishTree("w", namesOnly);
                  for (int number = 0; number < 3 * room; ++number) {
                      makeFolder("w/" + std::to_string(number));
                  }
                  if (!waitFor("! folder w", 1)) {
                      return "not told";
                  }
                  settle();
                  for (int number = 0; number < room; ++number) {
                      remove("w/" + std::to_string(number));
                      settle();
                  }
                  return told("! folder w") == 1 ? "told once"
                                                 : std::to_string(told("! folder w")) + " times";
              }),
              "told once");
}

/// Lets the process have no more descriptors than it has now, until allowAll().
class DescriptorLimit {
  public:
    DescriptorLimit() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        rlim_t highest = 0;
        for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            highest = std::max<rlim_t>(highest, std::stoul(entry.path().filename().string()));
        }
        for (int spare = ::dup(0); spare >= 0 && static_cast<rlim_t>(spare) < highest;) {
            spare = ::dup(0);
        }
        rlimit const limit{highest + 1, before_.rlim_max};
        isSet_ = ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
    }
    bool isSet() const { return isSet_; }
    void allowAll() const { ::setrlimit(RLIMIT_NOFILE, &before_); }

  private:
    rlimit before_{};
    bool isSet_ = false;
};

TEST_F(LocalWatchShortage, AFolderMadeWhileThereAreNoDescriptorsIsWatchedWhenThereAreSome) {
    EXPECT_EQ(inChild([&]() -> std::string {
                  makeFolder("w/a");
                  publishTree("w", namesOnly);
                  settle();
                  if (told("! folder w") != 0) { // asked before a sanitizer has no descriptors
                      return "told early";
                  }
                  DescriptorLimit const limit;
                  std::filesystem::create_directory(path("w/s"));
                  std::filesystem::create_directory(path("w/s/t"));
                  if (!limit.isSet() || !waitFor("! folder w", 1)) {
                      return "not told";
                  }
                  limit.allowAll();
                  if (!waitFor("! folder w", 2)) {
                      return "not told of the end";
                  }
                  if (!deafFolders().empty()) {
                      return "deaf";
                  }
                  return told("- folder w") == 0 ? "watched" : "removed";
              }),
              "watched");
}

TEST_F(LocalWatchShortage, WhatIsThereIsNotRemovedForWantOfDescriptors) {
    for (bool const isFile : {false, true}) {
        EXPECT_EQ(inChild([&]() -> std::string {
                      makeFolder("p");
                      makeFolder("p/f");
                      makeFile("p/f/file");
                      isFile ? publishFile("p/f/file") : publish("p/f");
                      if (told("! folder p/f") != 0) { // as above
                          return "told early";
                      }
                      DescriptorLimit const limit;
                      rename("p", "q");
                      rename("q", "p");
                      if (!limit.isSet() || !log_.waitForOverflow()) {
                          return "not told";
                      }
                      limit.allowAll();
                      std::string const item = isFile ? "file p/f/file" : "folder p/f";
                      if (!waitFor("! " + item, 2)) {
                          return "not told of the end";
                      }
                      std::ofstream(path("p/f/file")).put('x');
                      if (!log_.waitForEntry(Kind::Modified, "p/f/file")) {
                          return "unseen";
                      }
                      return told("- " + item) == 0 ? "watched" : "removed";
                  }),
                  "watched")
            << isFile;
        remove("p");
    }
}

} // namespace

} // namespace foundation::storage::provider::local::test
