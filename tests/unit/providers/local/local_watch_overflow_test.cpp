#include "watch_fixture.hpp"

#include <gmock/gmock.h>

#include <fstream>

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

} // namespace

} // namespace foundation::storage::provider::local::test
