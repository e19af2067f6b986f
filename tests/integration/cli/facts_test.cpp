#include "command_run.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace cli_test {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

nlohmann::json statOf(TemporaryFolder const& folder, std::string const& operand) {
    Outcome const outcome = vfs(folder, {"stat", "--json", operand});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    return nlohmann::json::parse(outcome.out);
}

TEST(CommandStat, ShowsABlockOfFacts) {
    TemporaryFolder folder;
    writeFile(folder / "a b", std::string(1536, 'x'));
    ::chmod((folder / "a b").c_str(), 0640);
    ASSERT_EQ(vfs(folder, {"touch", "-d", "2024-05-01T10:11:12.5Z", "a b"}).code, 0);

    Outcome const outcome = vfs(folder, {"stat", "a b"});

    std::string const iri = "file://" + folder.path().string() + "/a b";
    EXPECT_EQ(outcome.out, "location:  " + iri + "\ncanonical: " + iri +
                               "\nkind:      file\nsize:      1.5 KiB (1536 bytes)\n"
                               "modified:  2024-05-01T10:11:12.500000000Z\n"
                               "mode:      rw-r----- (0640)\nwritable:  yes\n");
}

TEST(CommandStat, ShowsSeveralBlocksApartAndGoesOn) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");

    Outcome const outcome = vfs(folder, {"stat", "a", "missing", "a"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: stat: missing: no such file or folder\n");
    EXPECT_THAT(outcome.out, HasSubstr("writable:  yes\n\nlocation:  "));
}

TEST(CommandStat, KeepsNanoseconds) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");
    timespec const times[]{{0, UTIME_OMIT}, {1'700'000'000, 123'456'789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "a").c_str(), times, 0), 0);

    EXPECT_EQ(statOf(folder, "a")["modified"], "2023-11-14T22:13:20.123456789Z");
}

TEST(CommandStat, ShowsTimesBeforeTheEpoch) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");
    timespec const times[]{{0, UTIME_OMIT}, {-1, 250'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "a").c_str(), times, 0), 0);

    EXPECT_EQ(statOf(folder, "a")["modified"], "1969-12-31T23:59:59.250000000Z");
}

TEST(CommandStat, TellsKindsApart) {
    TemporaryFolder folder;
    writeFile(folder / "file", "12345");
    fs::create_directory(folder / "folder");
    fs::create_symlink("file", folder / "to-file");
    fs::create_symlink("folder", folder / "to-folder");
    fs::create_symlink("nowhere", folder / "dangling");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0666), 0);

    EXPECT_EQ(statOf(folder, "file")["kind"], "file");
    EXPECT_EQ(statOf(folder, "folder")["kind"], "folder");
    EXPECT_EQ(statOf(folder, "fifo")["kind"], "other");
    nlohmann::json const toFile = statOf(folder, "to-file");
    EXPECT_EQ(toFile["kind"], "link-to-file");
    EXPECT_EQ(toFile["target"], "file");
    EXPECT_EQ(toFile["size"], 5);
    EXPECT_THAT(toFile["canonical"].get<std::string>(), ::testing::EndsWith("/file"));
    EXPECT_EQ(statOf(folder, "to-folder")["kind"], "link-to-folder");
    nlohmann::json const dangling = statOf(folder, "dangling");
    EXPECT_EQ(dangling["kind"], "dangling-link");
    EXPECT_EQ(dangling["target"], "nowhere");
}

TEST(CommandStat, KnowsSizesAboveFourGiB) {
    TemporaryFolder folder;
    writeFile(folder / "big", "");
    fs::resize_file(folder / "big", 5'000'000'000);

    EXPECT_EQ(statOf(folder, "big")["size"], 5'000'000'000);
    EXPECT_THAT(vfs(folder, {"stat", "big"}).out, HasSubstr("4.7 GiB (5000000000 bytes)"));
}

TEST(CommandStat, ShowsExtendedAttributesWhereAsked) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");
    if (::setxattr((folder / "a").c_str(), "user.note", "x\ny", 3, 0) != 0 ||
        ::setxattr((folder / "a").c_str(), "user.raw", "\xff\0", 2, 0) != 0) {
        GTEST_SKIP() << "the temporary folder's file system takes no user attributes";
    }

    EXPECT_THAT(vfs(folder, {"stat", "-x", "a"}).out, HasSubstr("attribute: user.note = x\\ny\n"));
    EXPECT_FALSE(statOf(folder, "a").contains("attributes"));
    nlohmann::json const facts =
        nlohmann::json::parse(vfs(folder, {"stat", "-x", "--json", "a"}).out);
    EXPECT_EQ(facts["attributes"]["user.note"], "x\ny");
    EXPECT_EQ(facts["attributes"]["user.raw"]["hex"], "ff00");
}

TEST(CommandStat, PrintsOneJsonObjectOnEachLine) {
    TemporaryFolder folder;
    writeFile(folder / "a\nb", "");
    writeFile(folder / "\xff", "");

    Outcome const outcome = vfs(folder, {"stat", "--json", "a\nb", "\xff"});

    std::size_t const lineEnd = outcome.out.find('\n');
    nlohmann::json const first = nlohmann::json::parse(outcome.out.substr(0, lineEnd));
    nlohmann::json const second = nlohmann::json::parse(outcome.out.substr(lineEnd + 1));
    EXPECT_THAT(first["location"].get<std::string>(), ::testing::EndsWith("/a%0Ab"));
    EXPECT_THAT(second["location"].get<std::string>(), ::testing::EndsWith("/%FF"));
}

TEST(CommandStat, PrintsALocationThatMeansTheSameWhateverBytesWereTyped) {
    TemporaryFolder folder;
    writeFile(folder / "\xff \xF0\x9F\x92\x80", "");
    std::string const top = "file://" + folder.path().string();
    std::string const typed = top + "/\xff \xF0\x9F\x92\x80";
    for (std::vector<std::string> const& words :
         {std::vector<std::string>{"stat", "--json"}, {"exists", "--json"}, {"ls", "--json"}}) {
        Outcome const outcome = vfs(folder, {words.front(), words.back(), typed});

        ASSERT_EQ(outcome.code, 0) << words.front() << outcome.err;
        EXPECT_EQ(nlohmann::json::parse(outcome.out)["location"], top + "/%FF \xF0\x9F\x92\x80")
            << words.front();
    }
}

TEST(CommandStat, FillsInWhatALocationLacks) {
    TemporaryFolder folder;

    EXPECT_EQ(statOf(folder, "mem:")["location"], "mem:/");
    EXPECT_EQ(statOf(folder, "mem:")["kind"], "folder");
    EXPECT_EQ(statOf(folder, "file://")["location"], "file:///");
    EXPECT_EQ(statOf(folder, ".")["kind"], "folder");
}

TEST(CommandExists, AnswersByItsCodeAlone) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");
    fs::create_symlink("nowhere", folder / "dangling");

    Outcome const there = vfs(folder, {"exists", "a", ".", "dangling", "mem:"});
    EXPECT_EQ(there.code, 0);
    EXPECT_EQ(there.out + there.err, "");
    Outcome const missing = vfs(folder, {"exists", "a", "missing"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.out + missing.err, "");
}

TEST(CommandExists, TellsTheKindWhereAsked) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");

    EXPECT_EQ(vfs(folder, {"exists", "-v", "a", "missing"}).out, "a: file\nmissing: nothing\n");
    Outcome const json = vfs(folder, {"exists", "--json", "mem:/", "mem:/missing"});
    EXPECT_EQ(json.code, 1);
    EXPECT_EQ(json.out, "{\"location\":\"mem:/\",\"exists\":true,\"kind\":\"folder\"}\n"
                        "{\"location\":\"mem:/missing\",\"exists\":false,\"kind\":\"nothing\"}\n");
}

TEST(CommandExists, ReportsWhatItCannotAnswer) {
    TemporaryFolder folder;

    Outcome const outcome = vfs(folder, {"exists", "xyz:/a"});

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: exists: xyz:/a: no provider for the scheme 'xyz'\n");
}

TEST(CommandProviders, ListsWhatStoragesCanDo) {
    TemporaryFolder folder;

    Outcome const table = vfs(folder, {"providers"});
    EXPECT_THAT(table.out, ::testing::StartsWith("scheme  links  replaces  flushes  features\n"));
    EXPECT_THAT(table.out, HasSubstr("\nfile    yes    yes       no       "));
    EXPECT_THAT(table.out, HasSubstr("\nmem     yes    yes       no       "));
    EXPECT_THAT(table.out,
                HasSubstr("\nzip     yes    yes       yes      tree-removal tree-listing "));

    Outcome const json = vfs(folder, {"providers", "--json"});
    nlohmann::json const first = nlohmann::json::parse(json.out.substr(0, json.out.find('\n')));
    EXPECT_EQ(first["scheme"], "file");
    EXPECT_TRUE(first["links"].get<bool>());
    EXPECT_TRUE(first["replaces"].get<bool>());
    EXPECT_FALSE(first["flushes"].get<bool>());
    EXPECT_TRUE(first["features"].is_array());
}

} // namespace
} // namespace cli_test
