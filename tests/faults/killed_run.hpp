#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <vector>

extern char** environ;

namespace fault_sweep {

using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;

/// A process, with what it prints going to a file.
class Run {
  public:
    Run(Words words, std::string const& output) : started_(Clock::now()) {
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&actions, 1, output.c_str(),
                                           O_CREAT | O_TRUNC | O_WRONLY, 0644);
        ::posix_spawn_file_actions_adddup2(&actions, 1, 2);
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        int const error = ::posix_spawn(&process_, arguments.front(), &actions, nullptr,
                                        arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), words.front());
        }
    }

    void killAfter(Clock::duration delay) const {
        std::this_thread::sleep_until(started_ + delay);
        ::kill(process_, SIGKILL); // not waited for yet, so its number is nobody else's
    }

    /// The exit code, or 128 and the signal.
    int wait() const {
        int status = 0;
        while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    Clock::duration elapsed() const { return Clock::now() - started_; }

  private:
    pid_t process_ = -1;
    Clock::time_point started_;
};

} // namespace fault_sweep
