#include "command_run.hpp"

#include "unit/providers/http/lying_server.hpp"

#include <filesystem>
#include <gmock/gmock.h>

namespace cli_test {
namespace {

using foundation::storage::provider::http::test::content;
using foundation::storage::provider::http::test::LyingServer;
using ::testing::HasSubstr;
using ::testing::Not;

class CommandOnTheWeb : public ::testing::Test {
  protected:
    /// Whatever proxies there are do not know the loopback interface.
    Outcome run(std::vector<std::string> words) const {
        return CommandRun::vfs(std::move(words))
            .in(folder_.path())
            .environment("no_proxy", "127.0.0.1")
            .run();
    }
    explicit CommandOnTheWeb(LyingServer::Tls tls = LyingServer::Tls::No) : server_(tls) {}

    std::string at(std::string const& path) const { return "http://" + server_.authority() + path; }
    std::string onDisk(std::string const& name) const {
        return at("/disk" + (folder_ / name).string());
    }

    TemporaryFolder folder_;
    LyingServer server_;
};

TEST_F(CommandOnTheWeb, WritesAFileInFewRequests) {
    Outcome const outcome = run({"cat", at("/good/1000000")});
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, content(1'000'000));
    EXPECT_LE(server_.requests().size(), 4U); // 64 KiB, 256 KiB, 1 MiB
}

TEST_F(CommandOnTheWeb, CopiesAFileWithItsTime) {
    EXPECT_EQ(run({"cp", at("/good/100000"), "copy"}).err, "");
    EXPECT_EQ(readFile(folder_ / "copy"), content(100'000));
    EXPECT_THAT(run({"stat", "copy"}).out, HasSubstr("modified:  2024-06-01T10:00:00"));
    EXPECT_LE(server_.requests().size(), 7U);
}

TEST_F(CommandOnTheWeb, ListsAFileAndNoFolder) {
    Outcome const outcome = run({"ls", "-l", at("/good/100000")});
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, HasSubstr("2024-06-01T10:00:00Z  " + at("/good/100000")));
    EXPECT_EQ(run({"ls", at("/missing")}).err,
              "vfs: ls: " + at("/missing") + ": no such file or folder\n");
    EXPECT_EQ(run({"exists", at("/missing")}).code, 1);
    EXPECT_EQ(run({"exists", at("/good/1")}).code, 0);
    EXPECT_EQ(run({"rm", at("/good/1")}).code, 1);
    EXPECT_EQ(run({"put", at("/new")}).code, 1);
}

TEST_F(CommandOnTheWeb, LeavesNoPieceOfAFileThatChangesMeanwhile) {
    EXPECT_EQ(run({"cp", at("/changes/500000"), "copy"}).code, 1);
    EXPECT_TRUE(folder_.names().empty());
    Outcome const outcome = run({"cat", at("/changes/500000")});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("vfs: cat: " + at("/changes/500000")));
}

TEST_F(CommandOnTheWeb, LooksIntoAnArchiveWithoutReadingAllOfIt) {
    ASSERT_EQ(shell(folder_, "mkdir d; echo one > d/one; head -c 3000000 /dev/urandom > d/noise; "
                             "echo two > d/two; zip -q -0 -r a.zip d")
                  .code,
              0);
    std::string const inside = "zip:" + onDisk("a.zip") + "!/";

    auto const gets = [&] { return server_.countOf("\tGET\t"); };
    std::size_t before = gets();
    EXPECT_EQ(server_.requestsOf([&] {
        before = gets();
        Outcome const listed = run({"ls", inside + "d"});
        EXPECT_EQ(listed.err, "");
        EXPECT_THAT(listed.out, HasSubstr("two\n"));
        EXPECT_EQ(gets() - before, 1U); // the end, with the directory
    }),
              2U);
    EXPECT_LE(server_.requestsOf([&] {
        before = gets();
        Outcome const read = run({"cat", inside + "d/two"});
        EXPECT_EQ(read.err, "");
        EXPECT_EQ(read.out, "two\n");
        EXPECT_LE(gets() - before, 4U);
    }),
              5U); // four where it is in the first 64 KiB
    for (std::string const& request : server_.requests()) {
        EXPECT_THAT(request, Not(::testing::ContainsRegex("bytes=[0-9]*-\t")));
    }
}

TEST_F(CommandOnTheWeb, TakesUserAndPasswordFromNetrcForThatServerAlone) {
    writeFile(folder_ / "netrc", "machine 127.0.0.1 login ann password s3cret\n");
    auto const runWithNetrc = [&](std::string const& location) {
        return CommandRun::vfs({"cat", location})
            .in(folder_.path())
            .environment("no_proxy", "127.0.0.1")
            .environment("NETRC", (folder_ / "netrc").string())
            .run();
    };
    EXPECT_EQ(runWithNetrc(at("/for-users/5")).out, content(5));
    EXPECT_EQ(server_.countOf("authorization: Basic YW5uOnMzY3JldA=="), 1U); // "ann:s3cret"
    EXPECT_EQ(runWithNetrc(at("/to?http://OTHER/for-users/5")).err,
              "vfs: cat: " + at("/to?http://OTHER/for-users/5") +
                  ": permission denied (the server answered 401)\n");
    EXPECT_EQ(run({"cat", at("/for-users/5")}).code, 1);
    EXPECT_EQ(server_.countOf("authorization"), 2U); // the redirect was asked by ann
}

class CommandOnASecureServer : public CommandOnTheWeb {
  protected:
    CommandOnASecureServer() : CommandOnTheWeb(LyingServer::Tls::Yes) {}

    Outcome cat(std::vector<std::pair<std::string, std::string>> const& variables) const {
        CommandRun command = CommandRun::vfs({"cat", at_});
        command.in(folder_.path())
            .environment("no_proxy", "127.0.0.1")
            .environment("HOME", folder_.path().string());
        for (std::string const name : {"AWS_CA_BUNDLE", "CURL_CA_BUNDLE", "SSL_CERT_FILE"}) {
            command.environment(name, "");
        }
        for (auto const& [name, value] : variables) {
            command.environment(name, value);
        }
        return command.run();
    }
    std::string failure(std::string const& why) const {
        return "vfs: cat: " + at_ + ": input or output failed (" + why + ")\n";
    }

    std::string const at_ = "https://" + server_.secureAuthority() + "/good/5";
    std::string const missing_ = (folder_ / "missing").string();
};

TEST_F(CommandOnASecureServer, SaysWhatIsWrongWithCertificates) {
    EXPECT_EQ(cat({}).err, failure("the certificate of the server is not valid"));
    EXPECT_EQ(cat({{"AWS_CA_BUNDLE", missing_}}).err,
              failure("the file of trusted certificates cannot be read"));
}

TEST_F(CommandOnASecureServer, TrustsTheCertificatesThatAVariableNames) {
    for (std::string const name : {"AWS_CA_BUNDLE", "CURL_CA_BUNDLE", "SSL_CERT_FILE"}) {
        Outcome const outcome = cat({{name, server_.certificate()}});
        EXPECT_EQ(outcome.err, "") << name;
        EXPECT_EQ(outcome.out, content(5)) << name;
    }
    EXPECT_EQ(cat({{"AWS_CA_BUNDLE", server_.certificate()}, {"CURL_CA_BUNDLE", missing_}}).code,
              0);
    EXPECT_EQ(cat({{"CURL_CA_BUNDLE", server_.certificate()}, {"SSL_CERT_FILE", missing_}}).code,
              0);
}

TEST_F(CommandOnTheWeb, SaysThatADigestIsWantedWhichCannotBeGiven) {
    std::string const location = at("/for-digests/5");
    for (std::string const command : {"ls", "cat", "put", "rm"}) {
        Outcome const outcome = run({command, location});
        EXPECT_EQ(outcome.code, 1) << command;
        EXPECT_EQ(outcome.err, "vfs: " + command + ": " + location +
                                   ": permission denied (the server answered 401: it wants Digest "
                                   "authentication, and only Basic and Bearer can be given)\n");
    }
}

TEST_F(CommandOnTheWeb, RepeatsNoPassword) {
    std::string all;
    for (std::string const command : {"cat", "ls", "stat", "rm", "put"}) {
        Outcome const outcome =
            run({command, "http://ann:s3cret@" + server_.authority() + "/good/5"});
        EXPECT_EQ(outcome.code, 1);
        all += outcome.out + outcome.err;
    }
    EXPECT_THAT(all, Not(HasSubstr("s3cret")));
    EXPECT_EQ(server_.requests().size(), 0U);
}

} // namespace
} // namespace cli_test
