// Trees in an object store, through the command.

#include "command_run.hpp"
#include "listed_trees.hpp"

#include "unit/providers/http/lying_server.hpp"

#include <filesystem>
#include <gmock/gmock.h>
#include <set>

namespace cli_test {
namespace {

using foundation::storage::provider::http::test::LyingServer;
using ::testing::HasSubstr;
using ::testing::Not;

class CommandOnAStore : public ::testing::Test {
  protected:
    Outcome run(std::vector<std::string> words, std::string const& secret = "CANARYSECRET/+=") {
        Outcome outcome = CommandRun::vfs(std::move(words))
                              .in(folder_.path())
                              .environment("no_proxy", "127.0.0.1")
                              .environment("AWS_ENDPOINT_URL", "http://" + store_.authority())
                              .environment("AWS_REGION", "eu-test-1")
                              .environment("AWS_ACCESS_KEY_ID", "CANARYACCESS")
                              .environment("AWS_SECRET_ACCESS_KEY", secret)
                              .environment("AWS_SESSION_TOKEN", "CANARYTOKEN")
                              .run();
        EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("CANARY")));
        return outcome;
    }

    TemporaryFolder folder_;
    LyingServer store_;
};

TEST_F(CommandOnAStore, CopiesTreesThereAndBackOverSeveralConnections) {
    shell(folder_, "mkdir -p a/below a/void; for i in $(seq 100); do echo $i > a/$i; "
                   "echo below $i > a/below/$i; done; head -c 3000000 /dev/urandom > a/large");
    EXPECT_EQ(run({"cp", "-r", "a", "s3://good/a"}).err, "");
    EXPECT_EQ(run({"check", "a", "s3://good/a"}).out,
              "201 files and 3 folders compared (2.9 MiB), no difference\n");
    EXPECT_EQ(run({"cp", "-r", "s3://good/a", "b"}).err, "");
    EXPECT_EQ(shell(folder_, "diff -r a b").out, "");

    std::set<std::string> connections;
    for (std::string const& request : store_.requests()) {
        connections.insert(request.substr(request.rfind('\t') + 1));
    }
    EXPECT_GE(connections.size(), 8U);
}

TEST_F(CommandOnAStore, TellsInTheOrderOfTheWalkWhatItCopies) {
    shell(folder_, "mkdir a; for i in $(seq 100 200); do echo $i > a/$i; done");
    std::string expected = "a -> s3://good/a\n";
    for (std::string const& name : linesOf(run({"find", "a"}).out)) {
        expected += "a/" + name + " -> s3://good/a/" + name + '\n';
    }
    EXPECT_EQ(run({"cp", "-rv", "a", "s3://good/a"}).out, expected);
}

TEST_F(CommandOnAStore, RemovesATreeAndNothingBesideIt) {
    shell(folder_, "mkdir a ab; echo 1 > a/1; echo 2 > a/2; echo 3 > ab/3");
    EXPECT_EQ(run({"cp", "-r", "a", "ab", "s3://good/"}).err, "");
    EXPECT_EQ(run({"rm", "-r", "s3://good/a"}).err, "");
    EXPECT_EQ(run({"find", "s3://good/"}).out, "ab\nab/3\n");
}

TEST_F(CommandOnAStore, SaysThatItIsNotLetInAndKeepsTheSecret) {
    Outcome const outcome = run({"ls", "s3://good/"}, "CANARYSECRET-wrong");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: ls: s3://good/: permission denied\n");
}

} // namespace
} // namespace cli_test
