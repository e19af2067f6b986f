#include "command_run.hpp"
#include "help_text.hpp"
#include "listed_trees.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

using Words = std::vector<std::string>;

// What a shell offers for the last of the words behind the command's name.
using Offers = Words (*)(TemporaryFolder const& folder, Words const& words);

std::string quoted(Words const& words) {
    std::string line = "vfs";
    for (std::string const& word : words) {
        line += " '" + word + "'";
    }
    return line;
}

Words offeredByBash(TemporaryFolder const& folder, Words const& words) {
    Outcome const outcome =
        shell(folder, "source " VFS_SOURCE_FOLDER "/packaging/bash-completion/vfs; COMP_WORDS=(" +
                          quoted(words) + "); COMP_CWORD=" + std::to_string(words.size()) +
                          "; _vfs; [ ${#COMPREPLY[@]} = 0 ] || printf '%s\\n' \"${COMPREPLY[@]}\"");
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    return linesOf(outcome.out);
}

Words offeredByZsh(TemporaryFolder const& folder, Words const& words) {
    std::string line = "vfs";
    for (std::string const& word : words) {
        line += ' ' + word; // the last one may be empty
    }
    // The shell at the terminal finds the command by the path, and not this shell's function.
    Outcome const outcome =
        shell(folder, "mkdir .bin; ln -s " VFS_COMMAND " .bin/vfs; PATH=$PWD/.bin:$PATH "
                      "timeout 60 " VFS_SOURCE_FOLDER
                      "/tests/integration/cli/zsh_offers " VFS_SOURCE_FOLDER
                      "/packaging/zsh-completion '" +
                          line + "'; code=$?; rm -r .bin; exit $code");
    EXPECT_EQ(outcome.code, 0) << outcome.err << outcome.out;
    return linesOf(outcome.out);
}

struct Shell {
    char const* name;
    Offers offers;
};

class CommandCompletion : public ::testing::TestWithParam<Shell> {
  protected:
    Words offers(Words const& words) const { return GetParam().offers(folder, words); }

    TemporaryFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Of, CommandCompletion,
                         ::testing::Values(Shell{"bash", offeredByBash},
                                           Shell{"zsh", offeredByZsh}),
                         [](auto const& shell) { return shell.param.name; });

TEST_P(CommandCompletion, KnowsEveryCommand) {
    Words expected = commands();
    ASSERT_GT(expected.size(), 10u);
    expected.insert(expected.end(), {"-h", "--help", "--version"});
    EXPECT_THAT(offers({""}), UnorderedElementsAreArray(expected));
}

TEST_P(CommandCompletion, KnowsEveryOptionThatTheHelpOfACommandShows) {
    for (std::string const& command : commands()) {
        Words const options = optionsOf(command);
        ASSERT_FALSE(options.empty()) << command;
        EXPECT_THAT(offers({command, "-"}), UnorderedElementsAreArray(options)) << command;
    }
}

TEST_P(CommandCompletion, OffersFilesForOperandsAndForOptionsThatTakeOne) {
    writeFile(folder / "notes.txt", "");
    EXPECT_THAT(offers({"cat", "no"}), ElementsAre("notes.txt"));
    EXPECT_THAT(offers({"put", "-i", "no"}), ElementsAre("notes.txt"));
    EXPECT_THAT(offers({"rm", "--", "no"}), ElementsAre("notes.txt"));
}

TEST_P(CommandCompletion, OffersNoFileWhereNoOperandIsTaken) {
    writeFile(folder / "notes.txt", "");
    EXPECT_THAT(offers({"providers", "no"}), IsEmpty());
}

TEST_P(CommandCompletion, OffersTheValuesThatOptionsTake) {
    EXPECT_THAT(offers({"check", "--by", ""}),
                UnorderedElementsAre("content", "digest", "size", "time"));
    EXPECT_THAT(offers({"cp", "--policy", ""}),
                UnorderedElementsAre("defer", "fail", "force", "keep", "replace"));
    EXPECT_THAT(offers({"find", "-0t", ""}), UnorderedElementsAre("d", "f"));
    EXPECT_THAT(offers({"watch", "--events", ""}),
                UnorderedElementsAre("attributes", "created", "modified", "removed"));
}

TEST_P(CommandCompletion, OffersFurtherValuesBehindAComma) {
    Words const offered = offers({"watch", "--events", "created,re"});
    ASSERT_EQ(offered.size(), 1u);
    EXPECT_THAT(offered.front(), ::testing::AnyOf("removed", "created,removed"));
}

// What is offered above is what the program takes.
TEST(CommandCompletionValues, AreTakenByTheProgram) {
    TemporaryFolder folder;
    writeFile(folder / "a", "");
    writeFile(folder / "b", "");
    auto const code = [&](Words const& words) { return vfs(folder, words).code; };
    for (std::string const value : {"content", "digest", "size", "time"}) {
        EXPECT_NE(code({"check", "--by", value, "a", "b"}), 2) << value;
    }
    for (std::string const value : {"defer", "fail", "force", "keep", "replace"}) {
        EXPECT_NE(code({"cp", "--policy", value, "a", "b"}), 2) << value;
    }
    for (std::string const value : {"d", "f"}) {
        EXPECT_NE(code({"find", "-t", value, "."}), 2) << value;
    }
    for (std::string const value : {"attributes", "created", "modified", "removed"}) {
        EXPECT_NE(code({"watch", "--events", value, "nothing here"}), 2) << value;
    }
    EXPECT_EQ(code({"cp", "--policy", "other", "a", "b"}), 2);
    EXPECT_EQ(code({"watch", "--events", "other", "nothing here"}), 2);
}

} // namespace
} // namespace cli_test
