// Trees in an object store, through the command.

#include "command_run.hpp"
#include "listed_trees.hpp"

#include "unit/providers/http/lying_server.hpp"

#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <set>
#include <string>
#include <vector>

namespace cli_test {
namespace {

namespace s3 = foundation::storage::provider::s3;
using foundation::storage::provider::http::test::LyingServer;
using ::testing::AllOf;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::Not;

class CommandOnAStore : public ::testing::Test {
  protected:
    Outcome run(std::vector<std::string> words,
                std::string const& secret = "CANARYSECRET/+=", std::string const& answers = {}) {
        Outcome outcome = CommandRun::vfs(std::move(words))
                              .in(folder_.path())
                              .input(answers)
                              .environment("HOME", folder_.path().string())
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

    /// What rm does where it asks for each item, and these are the answers.
    Outcome removeAsking(std::string const& location, std::string const& answers) {
        return run({"rm", "-ri", location}, "CANARYSECRET/+=", answers);
    }

    /// An object of this name, whatever location has it.
    void put(std::string const& key, std::string const& bytes = {}) const {
        s3::S3Options options;
        options.web.proxy = "";
        options.endpoint = "http://" + store_.authority();
        options.region = "eu-test-1";
        options.credentials = {"CANARYACCESS", "CANARYSECRET/+=", "CANARYTOKEN"};
        s3::detail::Bucket const bucket("good", options);
        bucket.put(key, bytes, {}, bucket.deadline());
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
                std::string const field = "\trange: bytes=";
                std::size_t const at = requests[i].find(field);
                if (at == std::string::npos) {
                    return std::size_t(1) << 40;
                }
                std::string const range = requests[i].substr(at + field.size());
                std::size_t const dash = range.find('-');
                std::size_t const end = std::stoul(range.substr(dash + 1));
                sum += dash == 0 ? end : end + 1 - std::stoul(range); // so many at the end
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
                   "cp d/x.csv d/y.csv; zip -q a.zip d d/x.csv d/large d/y.csv");
    EXPECT_EQ(run({"cp", "a.zip", "s3://good/a.zip"}).err, "");

    auto const list = [&] {
        EXPECT_EQ(run({"find", "zip:s3://good/a.zip!/"}).out, "d\nd/x.csv\nd/large\nd/y.csv\n");
    };
    auto const read = [&](std::string const& name) {
        EXPECT_EQ(run({"cat", "zip:s3://good/a.zip!/d/" + name}).out,
                  shell(folder_, "cat d/x.csv").out);
    };
    EXPECT_THAT(bytesAsked(list), AllOf(Gt(0U), Le(200'000U)));
    EXPECT_THAT(bytesAsked([&] { read("x.csv"); }), AllOf(Gt(0U), Le(400'000U)));
    EXPECT_EQ(store_.requestsOf(list), 2U) << "what it is, and its end with the directory";
    EXPECT_EQ(store_.requestsOf([&] { read("x.csv"); }), 3U) << "and the file";
    EXPECT_EQ(store_.requestsOf([&] { read("y.csv"); }), 2U) << "which is at the end";
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

TEST_F(CommandOnAStore, SaysWhatItCannotName) {
    for (char const* const key : {"d/x", "d/logs", "d/logs/2024", "d//hidden", "d/z/1"}) {
        put(key, key);
    }
    std::string const all = "s3://good/d: input or output failed (2 keys cannot be listed as files "
                            "and folders, the first: d//hidden)\n";
    std::string const flat = "s3://good/d: input or output failed (2 keys or prefixes of keys "
                             "cannot be listed as files and folders, the first: d//)\n";

    Outcome const copied = run({"cp", "-r", "s3://good/d", "copy"});
    EXPECT_EQ(copied.code, 1);
    EXPECT_THAT(copied.err, HasSubstr("vfs: cp: " + flat));
    EXPECT_EQ(shell(folder_, "find copy -type f | sort").out, "copy/logs\ncopy/x\ncopy/z/1\n");

    Outcome const checked = run({"check", "s3://good/d", "copy"});
    EXPECT_EQ(checked.code, 1);
    EXPECT_EQ(checked.err, "vfs: check: " + flat);

    Outcome const found = run({"find", "s3://good/d"});
    EXPECT_EQ(found.code, 1);
    EXPECT_EQ(found.err, "vfs: find: " + all);
    EXPECT_EQ(found.out, "logs\nx\nz\nz/1\n");

    Outcome const summed = run({"du", "s3://good/d"});
    EXPECT_EQ(summed.code, 1);
    EXPECT_EQ(summed.err, "vfs: du: " + all);

    Outcome const listed = run({"ls", "s3://good/d"});
    EXPECT_EQ(listed.code, 1);
    EXPECT_EQ(listed.err, "vfs: ls: " + flat);
}

TEST_F(CommandOnAStore, MovesNothingAwayThatItCannotName) {
    put("d/e/", "bytes of a marker");
    put("d/x", "1");
    put("d/x/below", "2");
    EXPECT_EQ(run({"mv", "s3://good/d", "moved"}).code, 1);
    EXPECT_EQ(shell(folder_, "cat moved/x").out, "1");
    Outcome const left = run({"find", "s3://good/d"});
    EXPECT_THAT(left.out, HasSubstr("e\n"));
    EXPECT_EQ(run({"cat", "s3://good/d/x/below"}).out, "2");
    EXPECT_EQ(run({"rm", "-r", "s3://good/d"}).err, "");
    EXPECT_EQ(run({"exists", "s3://good/d"}).code, 1);
}

TEST_F(CommandOnAStore, RemovesWhatHasNoNameAlongWithItsFolder) {
    for (char const* const key : {"d/x", "d/x/below", "d/e//hidden", "d/e/f/1", "d//hidden"}) {
        put(key, key);
    }
    put("d/m/", "bytes of a marker");
    Outcome const rehearsed = run({"rm", "-r", "--dry-run", "s3://good/d"});
    EXPECT_EQ(rehearsed.code, 1);
    EXPECT_THAT(rehearsed.err, HasSubstr("cannot be listed as files and folders"));
    Outcome const removed = run({"rm", "-rv", "s3://good/d"});
    EXPECT_EQ(removed.err, "");
    // A folder that nobody made goes with the last file in it.
    EXPECT_EQ(removed.out, "removed s3://good/d/x\nremoved s3://good/d/e/f/1\n"
                           "removed s3://good/d/e/\n"
                           "removed s3://good/d/m/\nremoved s3://good/d/\n");
    EXPECT_EQ(run({"find", "s3://good/"}).out, "");
}

TEST_F(CommandOnAStore, AsksBeforeItEntersAFolderThatCannotBeListedWhole) {
    put("d/e/1");
    put("d//hidden");
    std::string const unlisted =
        "vfs: rm: s3://good/d: input or output failed (1 key or prefix of keys cannot be listed as "
        "files and folders, the first: d//)\n";
    std::string const kept = unlisted + "vfs: rm: 0 of 1 location removed, 1 failed: s3://good/d\n";

    Outcome const notEntered = removeAsking("s3://good/d", "n\n");
    EXPECT_EQ(notEntered.err, "vfs: rm: enter s3://good/d? " + kept);
    EXPECT_EQ(notEntered.code, 1);
    Outcome const innerKept = removeAsking("s3://good/d", "y\nn\n");
    EXPECT_EQ(innerKept.err, "vfs: rm: enter s3://good/d? vfs: rm: enter s3://good/d/e? " + kept);
    EXPECT_EQ(innerKept.code, 1);
    EXPECT_THAT(run({"find", "s3://good/d"}).out, "e\ne/1\n");
    Outcome const agreed = removeAsking("s3://good/d", "y\ny\ny\ny\ny\n");
    EXPECT_THAT(agreed.err, AllOf(HasSubstr("remove s3://good/d/e/1? "), HasSubstr(kept)));
    EXPECT_EQ(agreed.code, 1);
    EXPECT_EQ(run({"find", "s3://good/d"}).out, "");
    EXPECT_EQ(run({"exists", "s3://good/d"}).code, 0) << "with what could not be asked for";

    Outcome const left = removeAsking("s3://good/d", "n\n");
    EXPECT_EQ(left.err, "vfs: rm: remove s3://good/d? " + kept);
    EXPECT_EQ(left.code, 1);
}

TEST_F(CommandOnAStore, NamesEachFolderThatStaysForKeysWithoutNames) {
    for (char const* const key : {"d/x", "d/x/below", "d/e//hidden", "d/e/f/1", "d//hidden"}) {
        put(key, key);
    }
    std::string answers;
    for (int i = 0; i < 20; ++i) {
        answers += "y\n";
    }
    for (Outcome const& outcome :
         {run({"rm", "-r", "--dry-run", "s3://good/d"}),
          run({"rm", "-ri", "--dry-run", "s3://good/d"}), removeAsking("s3://good/d", answers)}) {
        EXPECT_EQ(outcome.code, 1);
        for (std::string const folder : {"s3://good/d", "s3://good/d/e"}) {
            EXPECT_THAT(outcome.err, HasSubstr("vfs: rm: " + folder + ": input or output failed ("))
                << outcome.err;
        }
        EXPECT_THAT(outcome.err, HasSubstr("0 of 1 location "));
    }
    EXPECT_EQ(run({"exists", "s3://good/d/e"}).code, 0) << "what could not be asked for";
    EXPECT_EQ(run({"exists", "s3://good/d/e/f"}).code, 1);
}

TEST_F(CommandOnAStore, SaysWhatIsWrongWithTheWayToTheStore) {
    auto const failure = [&](std::string const& place,
                             std::vector<std::pair<std::string, std::string>> const& variables) {
        CommandRun command = CommandRun::vfs({"ls", "s3://" + place});
        command.in(folder_.path())
            .environment("no_proxy", "127.0.0.1")
            .environment("HOME", folder_.path().string())
            .environment("AWS_ENDPOINT_URL", "http://" + store_.authority())
            .environment("AWS_REGION", "eu-test-1")
            .environment("AWS_ACCESS_KEY_ID", "CANARYACCESS")
            .environment("AWS_SECRET_ACCESS_KEY", "CANARYSECRET/+=")
            .environment("AWS_MAX_ATTEMPTS", "1");
        for (auto const& [name, value] : variables) {
            command.environment(name, value);
        }
        Outcome const outcome = command.run();
        EXPECT_EQ(outcome.code, 1);
        EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("CANARY")));
        std::string const start = "vfs: ls: s3://" + place + ": ";
        return outcome.err.starts_with(start) ? outcome.err.substr(start.size()) : outcome.err;
    };
    std::string const failed = "input or output failed ";

    EXPECT_EQ(failure("elsewhere/", {}),
              failed + "(the store answered 301: the bucket is in the region mars-north-1)\n");
    EXPECT_EQ(failure("good/a", {{"AWS_REGION", "mars-north-1"}}),
              failed + "(the store answered AuthorizationHeaderMalformed (400): the bucket is in "
                       "the region eu-test-1)\n");
    EXPECT_EQ(failure("good/", {{"AWS_ENDPOINT_URL", store_.authority()}}),
              "the storage cannot use this name or kind of item here (the endpoint is no http or "
              "https address)\n");
    EXPECT_EQ(failure("good/", {{"AWS_ENDPOINT_URL", "http://127.0.0.1:1"}}),
              failed + "(the server cannot be reached)\n");
    EXPECT_EQ(failure("good/", {{"AWS_SESSION_TOKEN", "CANARYTOKEN\r\nX-Evil: 1"}}),
              "the session token of an object store has a control character\n");
    EXPECT_EQ(failure("good/", {{"AWS_MAX_ATTEMPTS", "many"}}),
              "AWS_MAX_ATTEMPTS is no number from 1 to 1000\n");
    EXPECT_EQ(failure("good/",
                      {{"AWS_ENDPOINT_URL", "https://127.0.0.1:1"}, {"AWS_CA_BUNDLE", "/missing"}}),
              failed + "(the server cannot be reached)\n");
}

TEST_F(CommandOnAStore, AsksAsNobodyWhereAskedTo) {
    EXPECT_EQ(run({"ls", "s3://open/"}).code, 1) << "it takes nobody who says who asks";
    Outcome const outcome = CommandRun::vfs({"ls", "s3://open/"})
                                .in(folder_.path())
                                .environment("no_proxy", "127.0.0.1")
                                .environment("AWS_ENDPOINT_URL", "http://" + store_.authority())
                                .environment("AWS_ACCESS_KEY_ID", "CANARYACCESS")
                                .environment("AWS_SECRET_ACCESS_KEY", "CANARYSECRET/+=")
                                .environment("AWS_NO_SIGN_REQUEST", "YES")
                                .run();
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.code, 0);
}

TEST_F(CommandOnAStore, SaysThatItIsNotLetInAndKeepsTheSecret) {
    Outcome const outcome = run({"ls", "s3://good/"}, "CANARYSECRET-wrong");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "vfs: ls: s3://good/: permission denied (the store answered 403)\n");
}

} // namespace
} // namespace cli_test
