// Trees in an object store, through the command.

#include "command_run.hpp"
#include "listed_trees.hpp"

#include "unit/providers/http/lying_server.hpp"

#include <filesystem>
#include <gmock/gmock.h>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace cli_test {
namespace {

using foundation::storage::provider::http::test::LyingServer;
using ::testing::AllOf;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::Le;
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

    /// The sum of the ranges that the store is asked for meanwhile; without a range it is too much.
    template<class Call>
    std::size_t bytesAsked(Call const& call) const {
        std::size_t const before = store_.requests().size();
        call();
        std::size_t sum = 0;
        std::vector<std::string> const requests = store_.requests();
        for (std::size_t i = before; i < requests.size(); ++i) {
            if (requests[i].find("\tGET\t") != std::string::npos) {
                std::smatch range;
                bool const isPart =
                    std::regex_search(requests[i], range, std::regex("range: bytes=(\\d+)-(\\d+)"));
                sum += isPart ? std::stoul(range[2]) - std::stoul(range[1]) + 1 : 1U << 30;
            }
        }
        return sum;
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

TEST_F(CommandOnAStore, ReadsOfAnArchiveWhatItNeedsAlone) {
    shell(folder_, "mkdir d; head -c 20000000 /dev/urandom > d/large; seq 20000 > d/x.csv; "
                   "zip -q a.zip d d/x.csv d/large");
    EXPECT_EQ(run({"cp", "a.zip", "s3://good/a.zip"}).err, "");

    std::size_t const listed = bytesAsked([&] {
        EXPECT_EQ(run({"find", "zip:s3://good/a.zip!/"}).out, "d\nd/x.csv\nd/large\n");
    });
    std::size_t const read = bytesAsked([&] {
        EXPECT_EQ(run({"cat", "zip:s3://good/a.zip!/d/x.csv"}).out,
                  shell(folder_, "cat d/x.csv").out);
    });
    EXPECT_THAT(listed, AllOf(Gt(0U), Le(200'000U)));
    EXPECT_THAT(read, AllOf(Gt(0U), Le(400'000U)));
    EXPECT_LE(store_.requests().size(), 20U);
}

TEST_F(CommandOnAStore, RemovesATreeAndNothingBesideIt) {
    shell(folder_, "mkdir a ab; echo 1 > a/1; echo 2 > a/2; echo 3 > ab/3");
    EXPECT_EQ(run({"cp", "-r", "a", "ab", "s3://good/"}).err, "");
    EXPECT_EQ(run({"rm", "-r", "s3://good/a"}).err, "");
    EXPECT_EQ(run({"find", "s3://good/"}).out, "ab\nab/3\n");
}

TEST_F(CommandOnAStore, AsksNobodyUnderAProfileThatIsNowhere) {
    auto const runAs = [&](std::string const& location) {
        return CommandRun::vfs({"ls", location})
            .in(folder_.path())
            .environment("AWS_PROFILE", "missing")
            .environment("AWS_ENDPOINT_URL", "http://" + store_.authority())
            .environment("HOME", folder_.path().string())
            .run();
    };
    Outcome const refused = runAs("s3://open/");
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.err, "vfs: ls: s3://open/: no file has the profile 'missing', which "
                           "AWS_PROFILE names\n");
    EXPECT_TRUE(store_.requests().empty());
    EXPECT_EQ(runAs(".").code, 0) << "what is no store is not concerned";
}

TEST_F(CommandOnAStore, SaysThatItIsNotLetInAndKeepsTheSecret) {
    Outcome const outcome = run({"ls", "s3://good/"}, "CANARYSECRET-wrong");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: ls: s3://good/: permission denied\n");
}

} // namespace
} // namespace cli_test
