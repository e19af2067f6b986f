#include "command_sweep.hpp"

#include "faults/killed_run.hpp"

#include <fl/i18n/conversion.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <unistd.h>
#include <utility>

namespace remote_faults {

namespace {

using fault_sweep::Run;
using fault_sweep::Words;

/// As timeout(1) says it.
constexpr int endedByForce = 124;

/// Environment variables, until it goes.
class Variables {
  public:
    explicit Variables(std::map<std::string, std::string> values) : values_(std::move(values)) {
        for (auto const& [name, value] : values_) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
    }
    Variables(Variables const&) = delete;
    Variables& operator=(Variables const&) = delete;
    ~Variables() {
        for (auto const& [name, value] : values_) {
            ::unsetenv(name.c_str());
        }
    }

  private:
    std::map<std::string, std::string> const values_;
};

/// A file on the disk, until it goes.
class DiskFile {
  public:
    DiskFile(std::string const& name, std::string const& content)
        : path_(std::filesystem::temp_directory_path() /
                (name + '-' + std::to_string(::getpid()))) {
        std::ofstream(path_, std::ios::binary) << content;
    }
    DiskFile(DiskFile const&) = delete;
    DiskFile& operator=(DiskFile const&) = delete;
    ~DiskFile() { std::filesystem::remove(path_); }

    std::string const& path() const noexcept { return path_; }
    std::string content() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::string const path_;
};

struct Command {
    Words words;
    /// Prints the same each time, and does so behind a fault that passes.
    bool isReading = false;
    /// What it prints, where that is known.
    std::optional<std::string> expected = {};
};

std::vector<Command> commandsFor(Target const& target, std::string const& source) {
    std::string const root = fl::i18n::to_string(target.root.toString());
    std::string const small = readOnlyFiles(target).at("small.txt");
    std::vector<Command> result{{{"stat", "--json", root + "small.txt"}, true},
                                {{"cat", root + "small.txt"}, true, small},
                                {{"cat", root + "missing"}, true},
                                {{"exists", root + "small.txt"}, true, ""}};
    if (target.hasFolders) {
        result.insert(result.end(), {{{"ls", "-l", root + "many"}, true},
                                     {{"find", root + "many", "name-1000*"}, true},
                                     {{"cp", "-v", source, root + "work/copy"}},
                                     {{"cp", "-rv", root + "many/name-10000", root + "work/two"}},
                                     {{"mv", root + "work/copy", root + "work/moved"}},
                                     {{"du", root + "work"}, true},
                                     {{"rm", "-rv", root + "work"}}});
    }
    return result;
}

struct CommandFault {
    char const* kind; ///< empty: none
    Fault fault;
};

std::vector<CommandFault> faultsFor(Extent extent) {
    std::vector<CommandFault> result{{"command: 503 twice", {"status", 0, 2}},
                                     {"command: 503 from there on", {"status", 0, 0}}};
    if (extent == Extent::Full) {
        result.push_back({"command: reset", {"reset", 0, 1}});
        result.push_back({"command: reset from there on", {"reset", 0, 0}});
        result.push_back({"command: truncated", {"truncate", 0, 1, 300}});
    }
    return result;
}

/// Runs of one command, one after the other.
class CommandRuns {
  public:
    CommandRuns(Target const& target, Command const& command, std::string const& path,
                SweepResult& result)
        : target_(target),
          command_(command),
          words_(command.words),
          result_(result) {
        words_.insert(words_.begin(), {"/usr/bin/timeout", "120", path});
    }

    void runWithoutFault(Who who) {
        std::string const kind =
            who == Who::Known ? "command: no fault" : "command: another secret";
        int const code = run({kind.c_str(), {}}, result_.controls);
        if (who == Who::Known) {
            code_ = code;
            said_ = output_.content();
            if (command_.expected && (code != 0 || said_ != *command_.expected)) {
                note(result_.controls[kind][target_.name].wrong, "prints " + said_);
            }
        } else if (code == 0) {
            note(result_.controls[kind][target_.name].wrong, "does it for a stranger");
        }
    }
    /// REQUIRES: it was run without one.
    void runWith(CommandFault const& fault) {
        int const code = run(fault, result_.faults);
        bool const passes = fault.fault.count != 0;
        if (command_.isReading && (passes || code == 0) &&
            (code != code_ || output_.content() != said_)) {
            note(result_.faults[fault.kind][target_.name].wrong,
                 "ends with " + std::to_string(code) + " and prints " + output_.content());
        }
    }

  private:
    int run(CommandFault const& fault, Tallies& tallies) {
        what_ = fault.kind;
        target_.line->set(fault.fault);
        int const code = Run(words_, output_.path()).wait();
        bool const took = target_.line->clear().applied != 0 || fault.fault.kind.empty();
        Tally& tally = tallies[fault.kind][target_.name];
        tally.runs += took;
        tally.right += took && code == 0;
        tally.refused += took && code == 1;
        if (code == endedByForce) {
            note(tally.hangs, "does not end");
        } else if (code != 0 && code != 1) {
            note(tally.wrong, "ends with " + std::to_string(code));
        }
        std::string const printed = output_.content();
        for (std::string const& secret : target_.secrets) {
            if (printed.find(secret) != std::string::npos) {
                note(tally.canaries, "tells a secret");
            }
        }
        return code;
    }
    void note(std::size_t& count, std::string const& finding) {
        ++count;
        result_.findings.push_back(withoutSecrets(target_, target_.name + ", vfs " +
                                                               command_.words.front() + ", " +
                                                               what_ + ": " + finding));
    }

    Target const& target_;
    Command const& command_;
    Words words_;
    SweepResult& result_;
    DiskFile output_{"vfs-faults-output", ""};
    std::string what_;
    int code_ = -1;
    std::string said_;
};

} // namespace

std::vector<std::string> kindsOfCommands(Extent extent) {
    std::vector<std::string> kinds;
    for (CommandFault const& fault : faultsFor(extent)) {
        kinds.emplace_back(fault.kind);
    }
    return kinds;
}

void sweepCommands(Target const& target, std::string const& path, Extent extent,
                   SweepResult& result) {
    DiskFile const source("vfs-faults-source", "some bytes");
    for (Who const who : {Who::Known, Who::Stranger}) {
        std::map<std::string, std::string> environment = target.environment(who);
        DiskFile const netrc("vfs-faults-netrc", environment["netrc"]);
        environment.erase("netrc");
        environment["NETRC"] = netrc.path();
        Variables const variables(std::move(environment));
        for (Command const& command : commandsFor(target, source.path())) {
            CommandRuns runs(target, command, path, result);
            runs.runWithoutFault(who);
            if (who == Who::Stranger) {
                continue; // is refused without a fault
            }
            for (CommandFault const& fault : faultsFor(extent)) {
                runs.runWith(fault);
            }
        }
    }
}

} // namespace remote_faults
