#include "program.hpp"

#include "contest.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace bench {

namespace {

/// Where standard output goes.
class Output {
  public:
    /// To a descriptor; to nowhere where there is none.
    explicit Output(int descriptor) {
        ::posix_spawn_file_actions_init(&actions_);
        if (descriptor < 0) {
            ::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        } else {
            ::posix_spawn_file_actions_adddup2(&actions_, descriptor, STDOUT_FILENO);
        }
    }
    Output(Output const&) = delete;
    Output& operator=(Output const&) = delete;
    ~Output() { ::posix_spawn_file_actions_destroy(&actions_); }
    posix_spawn_file_actions_t const* get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

pid_t start(std::vector<std::string> arguments, int output) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);

    // Not by fork(2), which would copy this program's page tables at the program's expense.
    pid_t child = -1;
    errno = ::posix_spawnp(&child, pointers.front(), Output(output).get(), nullptr, pointers.data(),
                           environ);
    if (errno != 0) {
        fail(arguments.front());
    }
    return child;
}

/// Returns what it used.
struct rusage waitFor(pid_t child, std::string const& program) {
    int status = 0;
    struct rusage usage {};
    if (::wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        throw std::runtime_error(program + " failed");
    }
    return usage;
}

} // namespace

void runProgram(std::vector<std::string> arguments) {
    std::string const program = arguments.front();
    waitFor(start(std::move(arguments), -1), program);
}

ProgramRun runCounted(std::vector<std::string> arguments) {
    std::string const program = arguments.front();
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        fail("pipe2");
    }
    pid_t const child = start(std::move(arguments), ends[1]);
    ::close(ends[1]);
    ProgramRun run;
    static std::array<char, std::size_t{1} << 16> buffer;
    ssize_t got = 0;
    while ((got = ::read(ends[0], buffer.data(), buffer.size())) > 0) {
        run.lines += static_cast<std::size_t>(
            std::count(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(got), '\n'));
    }
    ::close(ends[0]);
    run.peakMebibytes = static_cast<double>(waitFor(child, program).ru_maxrss) / 1024;
    return run;
}

bool isInstalled(std::string const& program) {
    char const* const folders = std::getenv("PATH");
    std::istringstream path(folders != nullptr ? folders : "");
    for (std::string folder; std::getline(path, folder, ':');) {
        folder.append("/").append(program);
        if (::access(folder.c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace bench
