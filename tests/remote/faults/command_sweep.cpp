#include "command_sweep.hpp"

#include "faults/killed_run.hpp"

#include <fl/i18n/conversion.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <unistd.h>
#include <utility>
#include <vector>

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

std::vector<Words> commandsFor(Target const& target, std::string const& source) {
    std::string const root = fl::i18n::to_string(target.root.toString());
    std::vector<Words> result{{"stat", "--json", root + "small.txt"},
                              {"cat", root + "small.txt"},
                              {"cat", root + "missing"},
                              {"exists", root + "small.txt"}};
    if (target.hasFolders) {
        result.insert(result.end(), {{"ls", "-l", root},
                                     {"find", root + "many", "name-1000*"},
                                     {"cp", "-v", source, root + "work/copy"},
                                     {"cp", "-rv", root + "many/name-10000", root + "work/two"},
                                     {"mv", root + "work/copy", root + "work/moved"},
                                     {"du", root + "work"},
                                     {"rm", "-rv", root + "work"}});
    }
    return result;
}

/// A stranger is refused without one.
std::vector<Fault> faultsFor(Who who) {
    if (who == Who::Stranger) {
        return {Fault{}};
    }
    return {Fault{}, Fault{"status", 0, 2}, Fault{"reset", 0, 1, 300}, Fault{"status", 0, 0}};
}

} // namespace

void sweepCommands(Target const& target, std::string const& path, SweepResult& result) {
    DiskFile const source("vfs-faults-source", "some bytes");
    DiskFile const output("vfs-faults-output", "");
    Tally& tally = result.kinds["commands, whatever the fault"];
    for (Who const who : {Who::Known, Who::Stranger}) {
        std::map<std::string, std::string> environment = target.environment(who);
        DiskFile const netrc("vfs-faults-netrc", environment["netrc"]);
        environment.erase("netrc");
        environment["NETRC"] = netrc.path();
        Variables const variables(std::move(environment));
        for (Words words : commandsFor(target, source.path())) {
            words.insert(words.begin(), {"/usr/bin/timeout", "120", path});
            for (Fault const& fault : faultsFor(who)) {
                target.line.set(fault);
                Run const run(words, output.path());
                int const code = run.wait();
                target.line.clear();
                ++tally.injected;
                ++(code == 0 ? tally.right : tally.refused);
                std::string const said =
                    target.name + ", vfs " + words[3] + ", " + fault.text() + ": ";
                if (code == endedByForce) {
                    ++tally.hangs;
                    result.findings.push_back(said + "does not end");
                } else if (code != 0 && code != 1) {
                    ++tally.wrong;
                    result.findings.push_back(said + "ends with " + std::to_string(code));
                }
                for (std::string const& secret : target.secrets) {
                    std::string const printed = output.content();
                    if (printed.find(secret) != std::string::npos) {
                        ++tally.canaries;
                        result.findings.push_back(said + "tells a secret: " + printed);
                    }
                }
            }
        }
    }
}

} // namespace remote_faults
