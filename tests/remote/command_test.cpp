// The command and a store that many use.

#include "integration/cli/command_run.hpp"
#include "remote/server.hpp"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <vector>

namespace cli_test {
namespace {

using foundation::storage::provider::test::told;
using ::testing::HasSubstr;
using ::testing::Not;

class CommandAndAStore : public ::testing::Test {
  protected:
    void SetUp() override {
        VFS_NEEDS_SERVER("VFS_TEST_S3_ENDPOINT");
        EXPECT_EQ(run({"mkdir", root_}).err, "");
    }
    void TearDown() override {
        if (!told("VFS_TEST_S3_ENDPOINT").empty()) {
            run({"rm", "-rf", root_});
        }
    }

    Outcome run(std::vector<std::string> words) { return ran(CommandRun::vfs(std::move(words))); }
    /// A line in which `s3cmd` is another program for such stores, `bucket` the place.
    Outcome shell(std::string const& line) {
        return ran(CommandRun::shell(
            "set -e; export s3=" + root_ +
            "; s3cmd() { command s3cmd -c /dev/null --no-progress "
            "--no-ssl --access_key=$AWS_ACCESS_KEY_ID --secret_key=$AWS_SECRET_ACCESS_KEY "
            "--host=${AWS_ENDPOINT_URL#*//} --host-bucket=${AWS_ENDPOINT_URL#*//} \"$@\"; }; " +
            line));
    }
    /// Of what goes over the line from here on.
    void startCounting() { control(); }
    nlohmann::json counted() { return nlohmann::json::parse(control()); }

    std::string const root_ =
        "s3://" + told("VFS_TEST_S3_BUCKET") + "/command-" + std::to_string(::getpid());
    std::string endpoint_ = told("VFS_TEST_S3_ENDPOINT");
    TemporaryFolder folder_;

  private:
    Outcome ran(CommandRun command) {
        Outcome outcome = command.in(folder_.path())
                              .environment("no_proxy", "127.0.0.1")
                              .environment("AWS_ENDPOINT_URL", endpoint_)
                              .environment("AWS_REGION", told("VFS_TEST_S3_REGION"))
                              .environment("AWS_ACCESS_KEY_ID", told("VFS_TEST_S3_ACCESS_KEY"))
                              .environment("AWS_SECRET_ACCESS_KEY", told("VFS_TEST_S3_SECRET_KEY"))
                              .run();
        EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr(told("VFS_TEST_S3_SECRET_KEY"))));
        return outcome;
    }
    std::string control() {
        return shell("command curl -sf '" + told("VFS_TEST_S3_COUNT_ENDPOINT") + "/__fault'").out;
    }
};

TEST_F(CommandAndAStore, KeepATreeThatHasLinks) {
    shell("mkdir -p tree/below/empty; for i in $(seq 60); do echo $i > tree/$i.h; done; "
          "head -c 3000000 /dev/urandom > tree/below/large; touch 'tree/below/a+b c'; "
          "ln -s below tree/folder; ln -s 1.h tree/one.h");
    EXPECT_EQ(run({"cp", "-r", "tree", root_ + "/links"}).code, 1); // a store has none
    EXPECT_EQ(run({"cp", "-rL", "tree", root_ + "/tree"}).err, "");
    for (std::vector<std::string> const& sides :
         {std::vector<std::string>{"tree", root_ + "/tree"}, {root_ + "/tree", "tree"}}) {
        Outcome const check = run({"check", "-L", sides[0], sides[1]});
        EXPECT_EQ(check.code, 0) << check.err;
        EXPECT_THAT(check.out, HasSubstr("65 files and 5 folders compared"));
        EXPECT_THAT(check.out, HasSubstr("no difference"));
    }
    EXPECT_THAT(run({"du", "-s", root_ + "/tree"}).out,
                HasSubstr(shell("find -L tree -type f -printf '%s\\n' | awk '{ s += $1 } "
                                "END { printf \"%d\", s }'")
                              .out));
    EXPECT_EQ(shell("vfs find $s3/tree | sort | diff - <(cd tree; find -L * | sort)").out, "");

    // Another program sees the same objects, and their bytes.
    EXPECT_EQ(shell("s3cmd ls -r $s3/tree/ | awk '{ $1 = $2 = $3 = \"\"; print }' | "
                    "sed \"s|^ *$s3/tree/||\" | grep -v '/$' | grep . | sort | "
                    "diff - <(cd tree; find -L * -type f | sort)")
                  .out,
              "");
    EXPECT_EQ(shell("s3cmd get -q $s3/tree/folder/large got; cmp got tree/below/large").code, 0);
    EXPECT_EQ(shell("echo changed > other; s3cmd put -q other $s3/tree/7.h").code, 0);
    EXPECT_EQ(run({"cat", root_ + "/tree/7.h"}).out, "changed\n");
    Outcome const check = run({"check", "-L", "tree", root_ + "/tree"});
    EXPECT_EQ(check.code, 1);
    EXPECT_THAT(check.out, HasSubstr("7.h"));

    EXPECT_EQ(run({"rm", "-r", root_ + "/tree"}).err, "");
    EXPECT_EQ(shell("s3cmd ls -r $s3/tree").out, "");
}

TEST_F(CommandAndAStore, ReadOfAnArchiveWhatTheyNeedAlone) {
    shell("mkdir d; head -c 20000000 /dev/urandom > d/large; seq 6000 > d/x.csv; "
          "zip -q a.zip d d/x.csv d/large");
    EXPECT_EQ(run({"cp", "a.zip", root_ + "/a.zip"}).err, "");
    endpoint_ = told("VFS_TEST_S3_COUNT_ENDPOINT");

    startCounting();
    EXPECT_EQ(run({"find", "zip:" + root_ + "/a.zip!/"}).out, "d\nd/x.csv\nd/large\n");
    nlohmann::json const listed = counted();
    EXPECT_GT(listed.at("sent"), 300);
    EXPECT_LT(listed.at("sent"), 200'000); // of 20 million
    EXPECT_EQ(listed.at("requests"), 2);

    startCounting();
    EXPECT_EQ(run({"cat", "zip:" + root_ + "/a.zip!/d/x.csv"}).out, shell("cat d/x.csv").out);
    nlohmann::json const read = counted();
    EXPECT_GT(read.at("sent"), 20'000);
    EXPECT_LT(read.at("sent"), 400'000);
    EXPECT_EQ(read.at("requests"), 3);

    // Where it is small, everything comes with its end.
    shell("rm a.zip; zip -q0 a.zip d/x.csv");
    endpoint_ = told("VFS_TEST_S3_ENDPOINT");
    EXPECT_EQ(run({"cp", "a.zip", root_ + "/small.zip"}).err, "");
    endpoint_ = told("VFS_TEST_S3_COUNT_ENDPOINT");
    startCounting();
    EXPECT_EQ(run({"cat", "zip:" + root_ + "/small.zip!/d/x.csv"}).out, shell("cat d/x.csv").out);
    EXPECT_EQ(counted().at("requests"), 2);
    shell(": > empty");
    EXPECT_EQ(run({"cp", "empty", root_ + "/empty.zip"}).err, "");
    EXPECT_EQ(run({"ls", "zip:" + root_ + "/empty.zip!/"}).out, "");

    // That it is the line that counts.
    startCounting();
    EXPECT_EQ(run({"cp", root_ + "/a.zip", "back.zip"}).err, "");
    EXPECT_GT(counted().at("sent"), 20'000'000);
}

// 6 GiB where VFS_LONG_TESTS is set.
TEST_F(CommandAndAStore, KeepASparseFileOfManyParts) {
    char const* const size = std::getenv("VFS_LONG_TESTS") ? "6G" : "64M";
    shell(std::string("truncate -s ") + size +
          " sparse; echo begin | dd conv=notrunc of=sparse; "
          "echo end | dd conv=notrunc oflag=append of=sparse; "
          "echo middle | dd conv=notrunc bs=1000003 seek=30 of=sparse");
    EXPECT_EQ(run({"cp", "sparse", root_ + "/sparse"}).err, "");
    // As stores tell it of uploads: a digest, and the number of parts.
    EXPECT_THAT(shell("s3cmd info $s3/sparse").out,
                ::testing::ContainsRegex("[0-9a-f]{32}-[0-9]+"));
    EXPECT_EQ(run({"cp", root_ + "/sparse", "back"}).err, "");
    std::string const digest = shell("sha256sum < sparse").out;
    EXPECT_EQ(digest.size(), 64U + 4U);
    EXPECT_EQ(shell("sha256sum < back").out, digest);
    EXPECT_EQ(shell("stat -c %s back").out, shell("stat -c %s sparse").out);
}

} // namespace
} // namespace cli_test
