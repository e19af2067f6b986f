#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace cli_test {

/// What a finished process left behind. `code` is as a shell shows it: 128 and the signal's number
/// where a signal ended the process.
struct Outcome {
    int code = -1;
    std::string out;
    std::string err;
    long peakKiB = 0; ///< the largest resident memory
};

/// A folder of its own for a test, removed with everything in it.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    std::filesystem::path const& path() const { return path_; }
    std::filesystem::path operator/(std::string const& name) const { return path_ / name; }
    /// The names in it, sorted.
    std::vector<std::string> names() const;

  private:
    std::filesystem::path path_;
};

/// A process that was started and is waited for once.
class Process {
  public:
    Process(pid_t pid, int out, int err) : pid_(pid), out_(out), err_(err) {}
    pid_t pid() const { return pid_; }
    void signal(int number) const;
    Outcome wait();

  private:
    pid_t pid_;
    int out_;
    int err_;
};

/// How the command is to be run. Its output is collected, unless it goes elsewhere.
class CommandRun {
  public:
    /// The command vfs with these words behind its name.
    static CommandRun vfs(std::vector<std::string> words);
    /// A line for bash, in which `vfs` is the command under test.
    static CommandRun shell(std::string line);

    CommandRun& in(std::filesystem::path const& folder);
    CommandRun& input(std::string bytes);
    CommandRun& inputFrom(int descriptor);
    CommandRun& outputTo(int descriptor);
    CommandRun& errorsTo(int descriptor);
    CommandRun& environment(std::string const& name, std::string const& value);
    /// Without the super-user's right to pass over permissions.
    CommandRun& unprivileged();

    Process start() const;
    Outcome run() const { return start().wait(); }

  private:
    std::vector<std::string> words_;
    std::string folder_ = "/";
    std::string input_;
    int inputFrom_ = -1;
    int outputTo_ = -1;
    int errorsTo_ = -1;
    std::map<std::string, std::string> environment_;
    bool unprivileged_ = false;
};

/// Runs the command in a folder; the short form that most tests want.
Outcome vfs(TemporaryFolder const& folder, std::vector<std::string> words);
Outcome shell(TemporaryFolder const& folder, std::string const& line);

void writeFile(std::filesystem::path const& path, std::string const& bytes);
std::string readFile(std::filesystem::path const& path);

} // namespace cli_test
