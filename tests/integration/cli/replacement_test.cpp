#include "command_run.hpp"

#include <cli/arguments.hpp>
#include <cli/replacement.hpp>

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli_test {
namespace {

using foundation::storage::provider::ReplacementPolicy;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

TEST(CommandReplacement, NamesEveryPolicyInTwoWays) {
    struct Row {
        std::string name;
        std::string shortName;
        ReplacementPolicy policy;
    };
    for (Row const& row : {
             Row{"fail-if-exists", "fail", ReplacementPolicy::FailIfExists},
             Row{"replace-existing", "replace", ReplacementPolicy::ReplaceExisting},
             Row{"replace-read-only", "force", ReplacementPolicy::ReplaceReadOnly},
             Row{"replace-and-defer-denied", "defer", ReplacementPolicy::ReplaceAndDeferDenied},
             Row{"keep-existing", "keep", ReplacementPolicy::KeepExisting},
         }) {
        EXPECT_EQ(cli::policyNamed(row.name), row.policy);
        EXPECT_EQ(cli::policyNamed(row.shortName), row.policy);
    }
    EXPECT_THROW(cli::policyNamed("Keep"), cli::UsageError);
    EXPECT_THROW(cli::policyNamed(""), cli::UsageError);
}

TEST(CommandReplacement, RefusesOptionsThatContradictEachOther) {
    TemporaryFolder folder;
    writeFile(folder / "a", "A");
    struct Row {
        std::string options;
        std::string error;
    };
    for (Row const& row : {
             Row{"-n -f", "-n and -f exclude each other"},
             Row{"--policy keep -n", "--policy and -n exclude each other"},
             Row{"--policy keep -f", "--policy and -f exclude each other"},
             Row{"-i -n", "-i and -n exclude each other"},
             Row{"-i --policy fail", "-i asks before it replaces; this policy replaces nothing"},
             Row{"--policy what", "--policy is one of fail, replace, force, defer and keep"},
         }) {
        for (std::string const command : {"cp ", "mv "}) {
            Outcome const outcome = shell(folder, "vfs " + command + row.options + " a b");
            EXPECT_EQ(outcome.code, 2) << row.options;
            EXPECT_THAT(outcome.err, HasSubstr(": " + row.error + "\n"));
        }
    }
    EXPECT_EQ(shell(folder, "echo 'cp -i a b' | vfs sh").code, 2);
}

// b is there already, with an old file, a read-only one, and one of its own.
class CommandPolicy : public ::testing::TestWithParam<std::string> {
  protected:
    CommandPolicy() {
        for (std::string const name : {"a/sub", "b/sub"}) {
            fs::create_directories(folder_ / name);
        }
        writeFile(folder_ / "a/sub/old", "new");
        writeFile(folder_ / "a/sub/locked", "new");
        writeFile(folder_ / "a/fresh", "new");
        writeFile(folder_ / "b/sub/old", "old");
        writeFile(folder_ / "b/sub/locked", "old");
        writeFile(folder_ / "b/own", "own");
        ::chmod((folder_ / "b/sub/locked").c_str(), 0444);
    }
    Outcome onto(std::string const& policy) {
        std::vector<std::string> words{GetParam(), "-T", "--policy", policy, "a", "b"};
        if (copies()) {
            words.emplace_back("-r");
        }
        return CommandRun::vfs(words).in(folder_.path()).unprivileged().run();
    }
    std::string found(std::string const& path) { // what stands there
        return fs::exists(folder_ / path) ? readFile(folder_ / path) : "nothing";
    }
    std::string destination() {
        return found("b/sub/old") + " " + found("b/sub/locked") + " " + found("b/fresh") + " " +
               found("b/own");
    }
    std::string source() {
        return found("a/sub/old") + " " + found("a/sub/locked") + " " + found("a/fresh");
    }
    bool copies() const { return GetParam() != "mv"; }

    TemporaryFolder folder_;
};

TEST_P(CommandPolicy, FailRefusesTheFolder) {
    Outcome const outcome = onto("fail");

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr(": b: already exists\n"));
    EXPECT_EQ(destination(), "old old nothing own");
    EXPECT_EQ(source(), "new new new");
}

TEST_P(CommandPolicy, ReplaceMergesACopyAndRefusesAMove) {
    Outcome const outcome = onto("replace");

    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(source(), "new new new");
    if (copies()) {
        EXPECT_EQ(destination(), "new old new own");
        EXPECT_THAT(outcome.err, HasSubstr("b/sub/locked: is read-only (-f replaces it)\n"));
    } else {
        EXPECT_EQ(destination(), "old old nothing own");
        EXPECT_THAT(outcome.err, HasSubstr("b: folder not empty (-f merges into it)\n"));
    }
}

TEST_P(CommandPolicy, ForceReplacesWhatIsReadOnlyToo) {
    Outcome const outcome = onto("force");

    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(destination(), "new new new own");
    EXPECT_EQ(fs::exists(folder_ / "a"), copies());
}

TEST_P(CommandPolicy, KeepLeavesWhatIsThereAndIsNoFailure) {
    Outcome const outcome = onto("keep");

    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(destination(), "old old new own");
    EXPECT_EQ(source(), copies() ? "new new new" : "new new nothing");
}

TEST_P(CommandPolicy, DeferTellsAtTheEndWhatWasDenied) {
    Outcome const outcome = onto("defer");

    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.err, HasSubstr("b/sub/locked: is read-only (-f replaces it)\n"));
    EXPECT_EQ(destination(), "new old new own");
    EXPECT_EQ(source(), copies() ? "new new new" : "nothing new nothing");
}

INSTANTIATE_TEST_SUITE_P(Commands, CommandPolicy, ::testing::Values("cp", "mv"),
                         [](auto const& command) { return command.param; });

TEST(CommandQuestion, IsAskedBeforeEachReplacementAndAnsweredByYes) {
    TemporaryFolder folder;
    writeFile(folder / "a", "new");
    for (std::string const command : {"cp", "mv"}) {
        for (std::string const answer : {"n\n", "no\n", "\n", "", "x y\n", " y\n"}) {
            writeFile(folder / "b", "old");
            Outcome const outcome =
                CommandRun::vfs({command, "-i", "a", "b"}).in(folder.path()).input(answer).run();
            EXPECT_EQ(outcome.code, 0) << answer;
            EXPECT_THAT(outcome.err, HasSubstr("vfs: " + command + ": replace b? "));
            EXPECT_EQ(readFile(folder / "b"), "old") << answer;
            EXPECT_EQ(readFile(folder / "a"), "new") << answer;
        }
        for (std::string const answer : {"y\n", "Yes\n", "yes please\n"}) {
            writeFile(folder / "a", "new");
            writeFile(folder / "b", "old");
            EXPECT_EQ(CommandRun::vfs({command, "-i", "a", "b"})
                          .in(folder.path())
                          .input(answer)
                          .run()
                          .code,
                      0);
            EXPECT_EQ(readFile(folder / "b"), "new") << answer;
        }
        EXPECT_EQ(fs::exists(folder / "a"), command == "cp");
    }
}

TEST(CommandQuestion, IsAskedWithinATreeAndOnlyAboutWhatIsThere) {
    TemporaryFolder folder;
    fs::create_directories(folder / "a");
    fs::create_directories(folder / "b");
    writeFile(folder / "a/1", "new");
    writeFile(folder / "a/2", "new");
    writeFile(folder / "b/2", "old");

    Outcome const outcome =
        CommandRun::vfs({"cp", "-rTi", "a", "b"}).in(folder.path()).input("n\n").run();

    EXPECT_EQ(outcome.err, "vfs: cp: replace b/2? ");
    EXPECT_EQ(readFile(folder / "b/1") + readFile(folder / "b/2"), "newold");
}

TEST(CommandQuestion, ReadsNoByteBehindItsLine) {
    TemporaryFolder folder;
    writeFile(folder / "a", "new");
    writeFile(folder / "b", "old");

    EXPECT_EQ(shell(folder, "printf 'y\\nrest\\n' | { vfs cp -i a b 2>/dev/null; cat; }").out,
              "rest\n");
}

TEST(CommandQuestion, EndsAtASignal) {
    TemporaryFolder folder;
    writeFile(folder / "a", "new");
    writeFile(folder / "b", "old");
    int answers[2];
    int questions[2];
    ASSERT_EQ(::pipe2(answers, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(questions, O_CLOEXEC), 0);
    Process process = CommandRun::vfs({"cp", "-i", "a", "b"})
                          .in(folder.path())
                          .inputFrom(answers[0])
                          .errorsTo(questions[1])
                          .start();
    std::string asked;
    for (char byte = 0; !asked.ends_with('?') && ::read(questions[0], &byte, 1) == 1;) {
        asked += byte;
    }
    process.signal(SIGINT); // before the wait for the answer begins, or during it
    Outcome const outcome = process.wait();

    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(readFile(folder / "b"), "old");
    for (int const end : {answers[0], answers[1], questions[0], questions[1]}) {
        ::close(end);
    }
}

} // namespace
} // namespace cli_test
