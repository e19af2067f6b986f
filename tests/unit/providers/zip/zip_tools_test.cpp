// What we write is what other tools take for an archive, and they see the same in it.

#include "new_archive.hpp"

#include <foundation/storage/provider/byte_stream_open_options.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace foundation::storage::provider::zip::test {
namespace {

struct Tool {
    char const* name;
    char const* isThere;
    char const* check; ///< `%` stands for the archive
};

constexpr Tool tools[] = {
    {"unzip", "unzip -v", "unzip -tq '%'"},
    {"zipinfo", "zipinfo -h", "zipinfo -v '%'"},
    {"7z", "7z i", "7z t '%'"},
    {"bsdtar", "bsdtar --version", "bsdtar -tvf '%'"},
    {"python3", "python3 -c 'import zipfile'",
     "python3 -c 'import sys, zipfile; sys.exit(zipfile.ZipFile(sys.argv[1]).testzip() is not "
     "None)' '%'"},
};

int run(std::string command, std::string const& archive, std::string const& output) {
    for (std::size_t at = command.find('%'); at != std::string::npos; at = command.find('%')) {
        command.replace(at, 1, archive);
    }
    // unzip 6.00 goes on for ever with some members that are not what the directory tells.
    return std::system(("timeout 120 " + command + " > '" + output + "' 2>&1 < /dev/null").c_str());
}

void fill(IProvider& provider, NewArchive const& archive) {
    provider.createFolder(archive.at("empty"));
    provider.createFolderRecursive(archive.at("a/b"));
    write(provider, archive.at("a/b/deflated"), std::string(100'000, 't'));
    write(provider, archive.at("a/large"), someBytes(5'000'000, 1));
    write(provider, archive.at("a/stored"), "x");
    write(provider, archive.at("\xC3\xA4\xE2\x82\xAC"), "umlaut");
    provider.createFile(archive.at("nothing"));
    dynamic_cast<extensions::ILinks&>(provider).createLink(archive.at("link"), u"a/stored");
    provider.setLastModified(archive.at("a/stored"), toPtime({1'234'567'890, 0}));
    provider.setWritable(archive.at("a/stored"), false);
}

/// Archives of every kind that a flush makes.
std::vector<NewArchive> const& made() {
    static std::vector<NewArchive> const all = [] {
        std::vector<NewArchive> archives(3);
        for (NewArchive const& archive : archives) {
            auto const provider = archive.open();
            fill(*provider, archive);
            flush(*provider);
        }
        { // changed
            auto const provider = archives[1].open();
            provider->moveFolder(archives[1].at("a"), archives[1].at("moved"),
                                 ReplacementPolicy::FailIfExists);
            write(*provider, archives[1].at("nothing"), "something");
            flush(*provider);
        }
        { // with the records for many members
            auto const provider = archives[2].open();
            for (int i = 0; i < 66'000; ++i) {
                provider->createFile(archives[2].at("many" + std::to_string(i)));
            }
            flush(*provider);
        }
        return archives;
    }();
    return all;
}

class ZipTools : public ::testing::TestWithParam<Tool> {};

TEST_P(ZipTools, AcceptWhatWeWrite) {
    WorkFolder const work;
    std::string const output = work.path() + "/output";
    if (run(GetParam().isThere, "", output) != 0) {
        GTEST_SKIP() << GetParam().name << " is not installed";
    }
    for (NewArchive const& archive : made()) {
        EXPECT_EQ(run(GetParam().check, archive.path(), output), 0) << contentOf(output);
        EXPECT_EQ(contentOf(output).find("arning"), std::string::npos) << contentOf(output);
    }
}

constexpr char const* others[] = {"folders",
                                  "links",
                                  "folder behind its contents",
                                  "data descriptors",
                                  "comment",
                                  "something before",
                                  "archive before",
                                  "comments of members",
                                  "something behind",
                                  "large numbers",
                                  "large numbers behind something",

                                  "unicode names",
                                  "code page 437",
                                  "bytes of unix",
                                  "unicode extra field",
                                  "bzip2",
                                  "xz",
                                  "same name twice"};

/// Something new in every folder, also in those that only their members tell of.
void addToEachFolder(IProvider& provider, NewArchive const& archive) {
    std::vector<std::string> folders{""};
    for (std::string const& line : contentsOf(provider, archive.at(""))) {
        if (line.ends_with('/') && line.find(" -> ") == std::string::npos) {
            folders.push_back(line);
        }
    }
    for (std::string const& folder : folders) {
        write(provider, archive.at(folder + "more"), "of it");
    }
}

TEST_P(ZipTools, AcceptWhatTheyAcceptedBeforeWeChangedIt) {
    WorkFolder const work;
    std::string const output = work.path() + "/output";
    if (run(GetParam().isThere, "", output) != 0) {
        GTEST_SKIP() << GetParam().name << " is not installed";
    }
    int changed = 0;
    for (char const* const name : others) {
        SCOPED_TRACE(name);
        NewArchive const archive(name);
        if (run(GetParam().check, archive.path(), output) != 0) {
            continue;
        }
        auto const provider = archive.open();
        ASSERT_EQ(codeOf([&] { addToEachFolder(*provider, archive); }), -1);
        flush(*provider);
        EXPECT_EQ(run(GetParam().check, archive.path(), output), 0) << contentOf(output);
        ++changed;
    }
    EXPECT_GE(changed, 10);
}

INSTANTIATE_TEST_SUITE_P(All, ZipTools, ::testing::ValuesIn(tools),
                         [](auto const& tool) { return tool.param.name; });

TEST(ZipTools, UnzipMakesTheTreeThatWasWritten) {
    namespace fs = std::filesystem;
    WorkFolder const work;
    if (run("unzip -v", "", work.path() + "/output") != 0) {
        GTEST_SKIP() << "unzip is not installed";
    }
    std::string const tree = work.path() + "/tree";
    ASSERT_EQ(run("unzip -q '%' -d '" + tree + "'", made()[0].path(), work.path() + "/output"), 0)
        << contentOf(work.path() + "/output");
    EXPECT_TRUE(fs::is_directory(tree + "/empty"));
    EXPECT_EQ(contentOf(tree + "/a/b/deflated"), std::string(100'000, 't'));
    EXPECT_EQ(contentOf(tree + "/a/large"), someBytes(5'000'000, 1));
    EXPECT_EQ(contentOf(tree + "/\xC3\xA4\xE2\x82\xAC"), "umlaut");
    EXPECT_EQ(fs::read_symlink(tree + "/link"), "a/stored");
    EXPECT_EQ(fs::status(tree + "/a/stored").permissions(), fs::perms(0444));
    AttributeValues const stored = localItem(tree + "/a/stored").getFileAttributes().values();
    EXPECT_EQ(stored.lastModified.seconds, 1'234'567'890);
}

} // namespace
} // namespace foundation::storage::provider::zip::test
