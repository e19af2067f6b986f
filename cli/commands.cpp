#include "commands.hpp"

#include "display.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace cli {

namespace {

std::string programHelp() {
    std::string text =
        "Usage: vfs COMMAND [OPTIONS] [OPERANDS]\n"
        "\n"
        "Works on files and folders wherever they lie. A location is a path of the\n"
        "local disk or an IRI: notes.txt, file:///etc/hosts, zip:docs.zip!/notes.txt,\n"
        "s3://BUCKET/KEY in an object store, https://HOST/PATH on the web or WebDAV;\n"
        "'vfs providers' lists the schemes.\n"
        "\n"
        "Commands:\n";
    for (Command const& command : allCommands()) {
        text += fmt::format("  {:<10}  {}\n", command.name, command.summary);
    }
    text += "\n"
            "Options:\n"
            "  -h, --help  Print this help and exit\n"
            "  --version   Print the version and exit\n"
            "\n"
            "Object stores are found, and told who asks, by AWS_ENDPOINT_URL, AWS_REGION,\n"
            "AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY, AWS_PROFILE and other settings that\n"
            "programs for them take; servers of the web by ~/.netrc. vfs(1) has all of them\n"
            "under ENVIRONMENT.\n"
            "\n"
            "Exit codes: 0 done, 1 failed, 2 not understood.\n"
            "'vfs COMMAND --help' tells more about a command and shows examples.\n";
    return text;
}

int usageFailure(std::string const& command, std::string const& what) {
    std::string const of = command.empty() ? "" : command + " ";
    std::string const name = command.empty() ? "" : command + ": ";
    std::string const text =
        "vfs: " + name + what + "\nTry 'vfs " + of + "--help' for the options and examples.\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
    return exitUsage;
}

int runOrThrow(Host& host, Words const& words) {
    if (words.empty()) {
        throw UsageError("a command is needed");
    }
    std::string const& first = words.front();
    if (first == "--help" || first == "-h") {
        host.output().print(programHelp());
        host.output().flush();
        return exitDone;
    }
    if (first == "--version") {
        host.output().printLine("vfs " VFS_VERSION);
        host.output().flush();
        return exitDone;
    }
    if (first.starts_with('-')) {
        throw UsageError("unknown option '" + onOneLine(first.substr(0, first.find('='))) + "'");
    }
    std::span<Command const> const commands = allCommands();
    auto const command =
        std::find_if(commands.begin(), commands.end(),
                     [&](Command const& candidate) { return candidate.name == first; });
    if (command == commands.end()) {
        throw UsageError("unknown command '" + shownLocation(first) + "'");
    }
    Words const rest(words.begin() + 1, words.end());
    try {
        return command->run(host, rest);
    } catch (UsageError const& error) {
        return usageFailure(first, error.what());
    } catch (OutputFailure const& failure) {
        Invocation(host, first).fail("standard output", failure.what());
        return exitFailed;
    }
}

} // namespace

std::span<Command const> allCommands() noexcept {
    static constexpr std::array commands{
        Command{"cat", "Write files to standard output", runCat},
        Command{"check", "Compare two trees or files", runCheck},
        Command{"cp", "Copy files", runCp},
        Command{"du", "Add up the sizes of trees", runDu},
        Command{"exists", "Ask whether something is at a location", runExists},
        Command{"find", "List everything below a folder", runFind},
        Command{"ls", "List folders", runLs},
        Command{"mkdir", "Create folders", runMkdir},
        Command{"mv", "Move or rename files", runMv},
        Command{"pack", "Make an archive of a folder", runPack},
        Command{"providers", "List the schemes and what their storages can do", runProviders},
        Command{"put", "Write a file from standard input or another file", runPut},
        Command{"rm", "Remove files and empty folders", runRm},
        Command{"sh", "Run commands from standard input in one process", runSh},
        Command{"stat", "Show what is known of files and folders", runStat},
        Command{"touch", "Create files or set their time of modification", runTouch},
        Command{"tree", "Draw what is below a folder", runTree},
        Command{"unpack", "Copy all that is in an archive", runUnpack},
        Command{"watch", "Print changes of files and folders as they happen", runWatch},
    };
    return commands;
}

int printHelp(Host& host, Arguments const& arguments) {
    host.output().print(arguments.helpText());
    host.output().flush();
    return exitDone;
}

int runCommandLine(Host& host, Words const& words) {
    try {
        return runOrThrow(host, words);
    } catch (UsageError const& error) {
        return usageFailure("", error.what());
    } catch (OutputFailure const& failure) {
        std::fprintf(stderr, "vfs: standard output: %s\n", failure.what());
        return exitFailed;
    }
}

} // namespace cli
