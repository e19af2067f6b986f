#pragma once

#include "arguments.hpp"
#include "invocation.hpp"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The words behind a command's name.
using Words = std::vector<std::string>;

/// A command. `run` reads the words and does the work; it throws UsageError, OutputFailure and
/// Interrupted, and reports everything else itself.
struct Command {
    std::string_view name;
    std::string_view summary;
    int (*run)(Host& host, Words const& words);
};

/// All commands in the order of their names.
std::span<Command const> allCommands() noexcept;

/// Runs the command that the first word names, behind the options of the program itself, and gives
/// the exit code. Throws Interrupted only.
int runCommandLine(Host& host, Words const& words);

/// Writes what `--help` shows; gives the exit code.
int printHelp(Host& host, Arguments const& arguments);

int runCat(Host& host, Words const& words);
int runCheck(Host& host, Words const& words);
int runCp(Host& host, Words const& words);
int runDu(Host& host, Words const& words);
int runExists(Host& host, Words const& words);
int runFind(Host& host, Words const& words);
int runLs(Host& host, Words const& words);
int runMkdir(Host& host, Words const& words);
int runMv(Host& host, Words const& words);
int runPack(Host& host, Words const& words);
int runProviders(Host& host, Words const& words);
int runPut(Host& host, Words const& words);
int runRm(Host& host, Words const& words);
int runSh(Host& host, Words const& words);
int runStat(Host& host, Words const& words);
int runTouch(Host& host, Words const& words);
int runTree(Host& host, Words const& words);
int runUnpack(Host& host, Words const& words);
int runWatch(Host& host, Words const& words);

} // namespace cli
