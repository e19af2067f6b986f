#include "watch_fixture.hpp"

#include "child_process.hpp"

#include <foundation/storage/provider/exception.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception_ptr.hpp>
#include <boost/property_tree/ptree.hpp>
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sched.h>
#include <sys/stat.h>
#include <system_error>

namespace foundation::storage::provider::local::test {

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Field;

constexpr int moreThanTheQueueHas = 17'000; // it has 16,384 unless somebody changed it

class LocalWatchOverflow : public LocalWatchTest {
  protected:
    LocalWatchOverflow() { std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queue_; }

    void makeMany(std::string const& folder, int number) const {
        for (int made = 0; made < number; ++made) {
            if (made % 500 == 0) {
                makeFolder(folder + "/f" + std::to_string(made / 500));
            }
            std::ofstream(
                path(folder + "/f" + std::to_string(made / 500) + '/' + std::to_string(made)))
                .flush();
        }
    }

    int queue_ = 0;
};

TEST_F(LocalWatchOverflow, WhoLooksWhenToldSeesAllThatIsNotReportedLater) {
    if (queue_ > moreThanTheQueueHas) {
        GTEST_SKIP() << "fs.inotify.max_queued_events is " << queue_;
    }
    log_.keepView([&](auto const& top) { return disk(top); });
    publishTree("w", namesOnly);
    makeFolder("w/flat");
    settle();
    hold();
    for (int number = 0; number < moreThanTheQueueHas; ++number) {
        std::ofstream(path("w/flat/" + std::to_string(number))).flush();
    }
    makeFolder("w/missed"); // of these the kernel tells nothing any more
    makeFolder("w/missed/inner");
    makeFile("w/missed/inner/file");
    remove("w/flat");

    release();

    ASSERT_TRUE(log_.waitForOverflow());
    makeFile("w/missed/inner/later");
    ASSERT_TRUE(log_.waitForEntry(Kind::Created, "w/missed/inner/later"));
    settle();
    EXPECT_EQ(log_.view(), disk());
}

TEST_F(LocalWatchOverflow, EveryPublicationIsToldWhateverItAskedFor) {
    if (queue_ > moreThanTheQueueHas) {
        GTEST_SKIP() << "fs.inotify.max_queued_events is " << queue_;
    }
    makeFile("w/file");
    makeFolder("other");
    publishTree("w", {Kind::Removed});
    publish("other", {});
    publishFile("w/file", {Kind::Modified});
    hold();
    for (int number = 0; number < moreThanTheQueueHas; ++number) {
        std::ofstream(path("w/" + std::to_string(number))).flush();
    }

    release();

    ASSERT_TRUE(log_.waitFor([](auto const& changes) { return changes.size() >= 3; }));
    auto const told = [](std::string const& item, EntryType type) {
        return Contains(AllOf(Field(&Change::kind, Kind::Overflow), Field(&Change::watched, item),
                              Field(&Change::entry, item), Field(&Change::type, type)));
    };
    EXPECT_THAT(log_.changes(), told("w", EntryType::Folder));
    EXPECT_THAT(log_.changes(), told("other", EntryType::Folder));
    EXPECT_THAT(log_.changes(), told("w/file", EntryType::File));
}

TEST_F(LocalWatchOverflow, ABurstEndsWithTheViewOfTheDisk) {
    log_.keepView([&](auto const& top) { return disk(top); });
    publishTree("w", namesOnly);
    hold();
    makeMany("w", 10'000);
    release();
    makeFolder("w/deeper");
    makeMany("w/deeper", 10'000);
    for (int number = 0; number < 20; number += 2) {
        rename("w/f" + std::to_string(number), "w/deeper/m" + std::to_string(number));
        remove("w/f" + std::to_string(number + 1));
    }

    settle();

    settle();
    EXPECT_EQ(log_.view(), disk());
}

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

TEST_F(LocalWatchOverflow, ATreeWithMoreFoldersThanTheLimitIsRefusedWhole) {
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

TEST_F(LocalWatchOverflow, NoMoreInstancesIsARefusal) {
    if (!mayLimit()) {
        GTEST_SKIP() << "no user namespaces here";
    }
    EXPECT_EQ(inChild([&]() -> std::string {
                  limit("max_inotify_instances", 0);
                  return limitMet([&] { publish(); }) == EMFILE ? "refused" : "published";
              }),
              "refused");
}

TEST_F(LocalWatchOverflow, ATreeThatOutgrowsTheLimitIsToldAndMadeGoodWhenThereIsRoom) {
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

} // namespace

} // namespace foundation::storage::provider::local::test
