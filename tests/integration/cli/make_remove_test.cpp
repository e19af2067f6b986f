#include "command_run.hpp"

#include <chrono>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

std::string modifiedOf(TemporaryFolder const& folder, std::string const& name) {
    return shell(folder, "stat -c %y " + name).out;
}

TEST(CommandMkdir, MakesFolders) {
    TemporaryFolder folder;

    EXPECT_EQ(vfs(folder, {"mkdir", "a", "b"}).code, 0);

    EXPECT_TRUE(fs::is_directory(folder / "a"));
    EXPECT_TRUE(fs::is_directory(folder / "b"));
}

TEST(CommandMkdir, RefusesWhatIsThereOrHasNoParent) {
    TemporaryFolder folder;
    fs::create_directory(folder / "there");

    Outcome const outcome = vfs(folder, {"mkdir", "there", "no/such", "new"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: mkdir: there: already exists\n"
                           "vfs: mkdir: no/such: no such file or folder\n");
    EXPECT_TRUE(fs::is_directory(folder / "new"));
}

TEST(CommandMkdir, MakesParentsWhereAsked) {
    TemporaryFolder folder;

    EXPECT_EQ(vfs(folder, {"mkdir", "-p", "a/b/c", "a/b", "a/b/c"}).code, 0);

    EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));
    writeFile(folder / "file", "");
    EXPECT_EQ(vfs(folder, {"mkdir", "-p", "file/x"}).code, 1);
    EXPECT_EQ(vfs(folder, {"mkdir", "-p", "file"}).code, 1);
}

TEST(CommandTouch, CreatesWhatIsMissingUnlessToldNotTo) {
    TemporaryFolder folder;

    EXPECT_EQ(vfs(folder, {"touch", "-c", "a"}).code, 0);
    EXPECT_TRUE(folder.names().empty());
    EXPECT_EQ(vfs(folder, {"touch", "a"}).code, 0);
    EXPECT_THAT(folder.names(), ElementsAre("a"));
    EXPECT_EQ(readFile(folder / "a"), "");
}

TEST(CommandTouch, SetsTheTimeToNowAndKeepsTheContent) {
    TemporaryFolder folder;
    writeFile(folder / "a", "content");
    fs::last_write_time(folder / "a", fs::file_time_type::clock::now() - std::chrono::hours(48));

    EXPECT_EQ(vfs(folder, {"touch", "a"}).code, 0);

    auto const age = fs::file_time_type::clock::now() - fs::last_write_time(folder / "a");
    EXPECT_LT(age, std::chrono::hours(1));
    EXPECT_EQ(readFile(folder / "a"), "content");
}

TEST(CommandTouch, TakesTimesInSeveralForms) {
    TemporaryFolder folder;
    fs::create_directory(folder / "d");
    struct Row {
        std::string given;
        std::string found;
    };
    for (Row const& row : {
             Row{"2024-05-01", "2024-05-01 00:00:00.000000000 +0000\n"},
             Row{"2024-05-01T10:30", "2024-05-01 10:30:00.000000000 +0000\n"},
             Row{"2024-05-01 10:30:05", "2024-05-01 10:30:05.000000000 +0000\n"},
             Row{"2024-05-01T10:30:05.123456Z", "2024-05-01 10:30:05.123456000 +0000\n"},
             Row{"2024-05-01T10:30:05,5+02:00", "2024-05-01 08:30:05.500000000 +0000\n"},
             Row{"2024-02-29T23:00:00-0130", "2024-03-01 00:30:00.000000000 +0000\n"},
             Row{"1969-12-31T23:59:59.25Z", "1969-12-31 23:59:59.250000000 +0000\n"},
         }) {
        EXPECT_EQ(vfs(folder, {"touch", "-d", row.given, "a", "d"}).err, "") << row.given;
        EXPECT_EQ(modifiedOf(folder, "a"), row.found) << row.given;
        EXPECT_EQ(modifiedOf(folder, "d"), row.found) << row.given;
    }
}

TEST(CommandTouch, TakesATimeWithoutOffsetAsLocal) {
    TemporaryFolder folder;

    Outcome const outcome = CommandRun::vfs({"touch", "-d", "2024-07-01T12:00:00", "a"})
                                .in(folder.path())
                                .environment("TZ", "XST-02:00")
                                .run();

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(modifiedOf(folder, "a"), "2024-07-01 10:00:00.000000000 +0000\n");
}

TEST(CommandTouch, RefusesWhatIsNoTime) {
    TemporaryFolder folder;
    for (std::string const time :
         {"", "2024", "2024-13-01", "2023-02-29", "2024-05-01T", "2024-05-01T25:00",
          "2024-05-01T10:61", "2024-05-01T10:30:", "2024-05-01T10:30:05.", "2024-05-01T10:30Zx",
          "2024-05-01T10:30+", "2024-05-01T10:30+2", "2024-05-01T10:30+02:6", "now", "20240501"}) {
        Outcome const outcome = vfs(folder, {"touch", "-d", time, "a"});
        EXPECT_EQ(outcome.code, 2) << time;
        EXPECT_TRUE(folder.names().empty()) << time;
    }
}

TEST(CommandTouch, LeavesLinksThatLeadNowhereAlone) {
    TemporaryFolder folder;
    fs::create_symlink("nowhere", folder / "link");

    Outcome const outcome = vfs(folder, {"touch", "link", "new/"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: touch: link: is a link that leads nowhere\n"
                           "vfs: touch: new/: no such folder\n");
    EXPECT_THAT(folder.names(), ElementsAre("link"));
}

TEST(CommandRm, RemovesFilesAndLinksThemselves) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");
    writeFile(folder / "target", "kept");
    fs::create_directory(folder / "dir");
    writeFile(folder / "dir/in", "kept");
    fs::create_symlink("target", folder / "link");
    fs::create_symlink("dir", folder / "dirlink");
    fs::create_symlink("nowhere", folder / "dangling");

    EXPECT_EQ(vfs(folder, {"rm", "a", "link", "dirlink", "dangling"}).err, "");

    EXPECT_THAT(folder.names(), ElementsAre("dir", "target"));
    EXPECT_EQ(readFile(folder / "dir/in"), "kept");
}

TEST(CommandRm, RemovesEmptyFoldersOnlyWhereAsked) {
    TemporaryFolder folder;
    fs::create_directory(folder / "empty");
    fs::create_directory(folder / "full");
    writeFile(folder / "full/a", "");

    Outcome const refused = vfs(folder, {"rm", "empty", "full"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.err,
              "vfs: rm: empty: is a folder (-r removes it with what is in it, -d an empty one)\n"
              "vfs: rm: full: is a folder (-r removes it with what is in it, -d an empty one)\n");
    Outcome const removed = vfs(folder, {"rm", "-d", "empty", "full"});
    EXPECT_EQ(removed.code, 1);
    EXPECT_EQ(removed.err, "vfs: rm: full: folder not empty (-r removes it with what is in it)\n");
    EXPECT_THAT(folder.names(), ElementsAre("full"));
    EXPECT_TRUE(fs::exists(folder / "full/a"));
}

TEST(CommandRm, ReportsAMissingFileUnlessForced) {
    TemporaryFolder folder;

    Outcome const reported = vfs(folder, {"rm", "missing"});
    EXPECT_EQ(reported.code, 1);
    EXPECT_EQ(reported.err, "vfs: rm: missing: no such file or folder\n");
    Outcome const forced = vfs(folder, {"rm", "-f", "missing"});
    EXPECT_EQ(forced.code, 0);
    EXPECT_EQ(forced.err, "");
}

} // namespace
} // namespace cli_test
