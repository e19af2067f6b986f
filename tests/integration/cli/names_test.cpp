#include "command_run.hpp"

#include <cctype>
#include <cstdio>
#include <gmock/gmock.h>

namespace cli_test {
namespace {

// Every byte that could mean something in an IRI, as %NN.
std::string encoded(std::string const& path) {
    std::string text;
    for (char const c : path) {
        auto const byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) != 0 || c == '/' || c == '.' || c == '-') {
            text += c;
        } else {
            char buffer[4];
            std::snprintf(buffer, sizeof buffer, "%%%02X", byte);
            text += buffer;
        }
    }
    return text;
}

struct Name {
    char const* what;
    std::string bytes;
};

void PrintTo(Name const& name, std::ostream* out) {
    *out << name.what;
}

class CommandNames : public ::testing::TestWithParam<Name> {};

// The same work on a file whatever its name, and however it is named on the command line.
void workOn(TemporaryFolder const& folder, std::string const& name, std::string const& spelled,
            std::string const& copied) {
    Outcome const put = CommandRun::vfs({"put", spelled}).in(folder.path()).input("content").run();
    EXPECT_EQ(put.code, 0) << put.err;
    EXPECT_EQ(readFile(folder / name), "content");
    EXPECT_EQ(vfs(folder, {"cat", spelled}).out, "content");
    EXPECT_EQ(vfs(folder, {"exists", spelled}).code, 0);
    EXPECT_THAT(vfs(folder, {"stat", "--json", spelled}).out, ::testing::HasSubstr("\"size\":7"));
    EXPECT_EQ(vfs(folder, {"touch", "-c", spelled}).code, 0);
    EXPECT_EQ(vfs(folder, {"cp", spelled, copied}).err, "");
    EXPECT_EQ(readFile(folder / (name + ".copy")), "content");
    EXPECT_EQ(vfs(folder, {"mv", "-f", copied, spelled}).err, "");
    EXPECT_FALSE(std::filesystem::exists(folder / (name + ".copy")));
    EXPECT_EQ(vfs(folder, {"rm", spelled}).err, "");
    EXPECT_FALSE(std::filesystem::exists(folder / name));
}

TEST_P(CommandNames, WorksAsAPlainPath) {
    TemporaryFolder folder;
    std::string const& name = GetParam().bytes;
    std::filesystem::create_directories((folder / name).parent_path());

    workOn(folder, name, "./" + name, "./" + name + ".copy");
    workOn(folder, name, (folder / name).string(), (folder / name).string() + ".copy");
}

TEST_P(CommandNames, WorksAsAnIRI) {
    TemporaryFolder folder;
    std::string const& name = GetParam().bytes;
    std::filesystem::create_directories((folder / name).parent_path());
    std::string const iri = "file://" + encoded((folder / name).string());

    workOn(folder, name, iri, iri + ".copy");
}

TEST_P(CommandNames, GoesIntoAFolderUnderItsOwnName) {
    TemporaryFolder folder;
    std::string const& name = GetParam().bytes;
    std::filesystem::create_directories((folder / name).parent_path());
    std::filesystem::create_directory(folder / "into");
    writeFile(folder / name, "content");

    Outcome const outcome = vfs(folder, {"cp", "./" + name, "into"});

    EXPECT_EQ(outcome.err, "");
    std::string const last = std::filesystem::path(name).filename().string();
    EXPECT_EQ(readFile(folder / ("into/" + last)), "content");
}

INSTANTIATE_TEST_SUITE_P(
    Hostile, CommandNames,
    ::testing::Values(Name{"Spaces", " two  spaces "}, Name{"Percent", "100%"},
                      Name{"PercentAndDigits", "a%41b"}, Name{"QuestionMark", "what?x=1"},
                      Name{"Hash", "#1"}, Name{"Separator", "a!/b"},
                      Name{"LoneExclamation", "wow!"}, Name{"Newline", "line\nbreak"},
                      Name{"Control", "\x01\x1b[0m\x7f"}, Name{"Emoji", "\xF0\x9F\x8D\x8B.txt"},
                      Name{"Umlaut", "\xC3\xA4\xCC\x88"}, Name{"Latin1", "caf\xE9"},
                      Name{"ByteFF", "\xFF"}, Name{"Overlong", "\xC0\xAF"},
                      Name{"EncodedSurrogate", "\xED\xA0\x80"}, Name{"Colon", "mem:x"},
                      Name{"LooksLikeIRI", "mem:/x"}, Name{"Backslash", "a\\b"},
                      Name{"Quotes", "'\"`$x"}, Name{"Star", "*"}, Name{"Dash", "-rf"},
                      Name{"Longest", std::string(250, 'n')}),
    [](auto const& test) { return std::string(test.param.what); });

} // namespace
} // namespace cli_test
