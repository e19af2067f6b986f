#include "program.hpp"

#include "contest.hpp"

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

/// Standard output to nowhere.
class Silence {
  public:
    Silence() {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    Silence(Silence const&) = delete;
    Silence& operator=(Silence const&) = delete;
    ~Silence() { ::posix_spawn_file_actions_destroy(&actions_); }
    posix_spawn_file_actions_t const* get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

/// Returns what it used.
struct rusage runToItsEnd(std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);

    // Not by fork(2), which would copy this program's page tables at the program's expense.
    pid_t child = -1;
    errno = ::posix_spawnp(&child, pointers.front(), Silence().get(), nullptr, pointers.data(),
                           environ);
    if (errno != 0) {
        fail(arguments.front());
    }
    int status = 0;
    struct rusage usage {};
    if (::wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        throw std::runtime_error(arguments.front() + " failed");
    }
    return usage;
}

} // namespace

void runProgram(std::vector<std::string> arguments) {
    runToItsEnd(std::move(arguments));
}

double peakMemoryOf(std::vector<std::string> arguments) {
    return static_cast<double>(runToItsEnd(std::move(arguments)).ru_maxrss) / 1024;
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
