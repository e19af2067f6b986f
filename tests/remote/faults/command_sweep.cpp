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

/// All that is below "work/" before each run.
Files const before{{"work/kept.txt", "stays"}, {"work/copy", "old bytes"}};
constexpr char sourceBytes[] = "some bytes";

struct Command {
    Words words;
    int code = 0; ///< without a fault
    /// Prints the same each time, and does so behind a fault that passes.
    bool isReading = false;
    /// What it prints, where that is known.
    std::optional<std::string> printed = {};
    /// All that is below "work/" when it was done.
    Files after = before;
};

Files with(std::string const& path, std::string const& content) {
    Files files = before;
    files[path] = content;
    return files;
}

std::vector<Command> commandsFor(Target const& target, std::string const& source) {
    std::string const root = fl::i18n::to_string(target.root.toString());
    std::string const small = readOnlyFiles(target).at("small.txt");
    std::vector<Command> result{{{"cat", root + "small.txt"}, 0, true, small},
                                {{"stat", "--json", root + "small.txt"}, 0, true},
                                {{"cat", root + "missing"}, 1, true},
                                {{"exists", root + "small.txt"}, 0, true, ""}};
    if (target.hasFolders) {
        Files moved = with("work/moved", before.at("work/copy"));
        moved.erase("work/copy");
        std::string const work = root + "work";
        std::string const first = "name-10000";
        result.insert(
            result.end(),
            {{{"ls", "-l", root + "many"}, 0, true},
             {{"find", root + "many", "name-1000*"}, 0, true},
             {{"du", work}, 0, true},
             {{"cp", "-v", source, work + "/new"}, 0, false, {}, with("work/new", sourceBytes)},
             {{"cp", "-r", root + "many/" + first, work + "/new"},
              0,
              false,
              {},
              with("work/new", first)},
             {{"mv", work + "/copy", work + "/moved"}, 0, false, {}, moved},
             {{"rm", "-rv", work}, 0, false, {}, {}}});
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
            said_ = output_.content();
            if (code != command_.code || (command_.printed && said_ != *command_.printed)) {
                note(result_.controls[kind][target_.name].wrong, endText(code));
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
            (code != command_.code || output_.content() != said_)) {
            note(result_.faults[fault.kind][target_.name].wrong, endText(code));
        }
    }

  private:
    int run(CommandFault const& fault, Tallies& tallies) {
        what_ = fault.kind;
        target_.side->restore("work/", before);
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
        if (code == 0 && target_.side->files("work/") != command_.after) {
            note(tally.wrong, "says that it is done, and leaves something else");
        }
        if (!target_.side->takeUploads().empty()) {
            note(tally.leaks, "leaves an upload");
        }
        std::string const printed = output_.content();
        for (std::string const& secret : target_.secrets) {
            if (printed.find(secret) != std::string::npos) {
                note(tally.canaries, "tells a secret");
            }
        }
        return code;
    }
    std::string endText(int code) const {
        return "ends with " + std::to_string(code) + " and prints " + output_.content();
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
    DiskFile const source("vfs-faults-source", sourceBytes);
    for (Who const who : {Who::Known, Who::Stranger}) {
        std::map<std::string, std::string> environment = target.environment(who);
        DiskFile const netrc("vfs-faults-netrc", environment["netrc"]);
        environment.erase("netrc");
        environment["NETRC"] = netrc.path();
        Variables const variables(std::move(environment));
        std::vector<Command> const commands = commandsFor(target, source.path());
        for (Command const& command : commands) {
            CommandRuns runs(target, command, path, result);
            runs.runWithoutFault(who);
            if (who == Who::Stranger) {
                continue; // is refused without a fault
            }
            for (CommandFault const& fault : faultsFor(extent)) {
                // The command is patient, and asks for long where there is no answer.
                if (extent == Extent::Full || fault.fault.count != 0 || &command == &commands[0]) {
                    runs.runWith(fault);
                }
            }
        }
    }
}

} // namespace remote_faults
