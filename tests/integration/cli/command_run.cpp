#include "command_run.hpp"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <linux/capability.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli_test {

namespace {

constexpr uid_t nobody = 65534;

[[noreturn]] void throwErrno(char const* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int memoryFile(std::string const& bytes) {
    int const descriptor = ::memfd_create("test", MFD_CLOEXEC);
    if (descriptor < 0) {
        throwErrno("memfd_create");
    }
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t const count = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (count < 0) {
            throwErrno("write");
        }
        done += static_cast<std::size_t>(count);
    }
    ::lseek(descriptor, 0, SEEK_SET);
    return descriptor;
}

std::string takeAll(int descriptor) {
    std::string bytes;
    if (descriptor < 0) {
        return bytes;
    }
    ::lseek(descriptor, 0, SEEK_SET);
    char buffer[65536];
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer, sizeof buffer)) > 0) {
        bytes.append(buffer, static_cast<std::size_t>(count));
    }
    ::close(descriptor);
    return bytes;
}

// Dropping the two capabilities from the bounding set takes them from root at the next exec, and
// leaves the build folder reachable wherever it lies. Where that is refused, another user must do.
bool dropPrivileges() {
    if (::geteuid() != 0) {
        return true;
    }
    if (::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) == 0 &&
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) == 0) {
        return true;
    }
    return ::setgroups(0, nullptr) == 0 && ::setresuid(nobody, nobody, nobody) == 0;
}

} // namespace

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "vfs-cli-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throwErrno("mkdtemp");
    }
    path_ = std::filesystem::canonical(name);
    ::chmod(name.c_str(), 0777);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TemporaryFolder::names() const {
    std::vector<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void Process::signal(int number) const {
    ::kill(pid_, number);
}

Outcome Process::wait() {
    int status = 0;
    rusage usage{};
    while (::wait4(pid_, &status, 0, &usage) < 0) {
        if (errno != EINTR) {
            throwErrno("wait4");
        }
    }
    Outcome outcome;
    outcome.code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    outcome.out = takeAll(std::exchange(out_, -1));
    outcome.err = takeAll(std::exchange(err_, -1));
    outcome.peakKiB = usage.ru_maxrss;
    return outcome;
}

CommandRun CommandRun::vfs(std::vector<std::string> words) {
    CommandRun run;
    run.words_ = std::move(words);
    run.words_.insert(run.words_.begin(), VFS_COMMAND);
    return run;
}

CommandRun CommandRun::shell(std::string line) {
    CommandRun run;
    // A process has one tracer at most, and the search for leaks at its end is one.
    if (line.find("strace ") != std::string::npos) {
        char const* const given = std::getenv("ASAN_OPTIONS");
        run.environment("ASAN_OPTIONS", std::string(given ? given : "") + ":detect_leaks=0");
    }
    run.words_ = {"/bin/bash", "-c", std::move(line)};
    return run;
}

CommandRun& CommandRun::in(std::filesystem::path const& folder) {
    folder_ = folder.string();
    return *this;
}

CommandRun& CommandRun::input(std::string bytes) {
    input_ = std::move(bytes);
    return *this;
}

CommandRun& CommandRun::inputFrom(int descriptor) {
    inputFrom_ = descriptor;
    return *this;
}

CommandRun& CommandRun::outputTo(int descriptor) {
    outputTo_ = descriptor;
    return *this;
}

CommandRun& CommandRun::errorsTo(int descriptor) {
    errorsTo_ = descriptor;
    return *this;
}

CommandRun& CommandRun::environment(std::string const& name, std::string const& value) {
    environment_[name] = value;
    return *this;
}

CommandRun& CommandRun::unprivileged() {
    unprivileged_ = true;
    return *this;
}

Process CommandRun::start() const {
    int const in = inputFrom_ >= 0 ? inputFrom_ : memoryFile(input_);
    int const out = outputTo_ >= 0 ? outputTo_ : memoryFile({});
    int const err = errorsTo_ >= 0 ? errorsTo_ : memoryFile({});
    std::vector<char*> arguments;
    for (std::string const& word : words_) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    std::string const folderOfCommand = std::filesystem::path(VFS_COMMAND).parent_path().string();
    pid_t const pid = ::fork();
    if (pid < 0) {
        throwErrno("fork");
    }
    if (pid == 0) {
        // Whoever runs the tests may ignore this signal; a shell's children do not.
        ::signal(SIGPIPE, SIG_DFL);
        ::signal(SIGINT, SIG_DFL);
        ::dup2(in, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        ::setenv("PATH", (folderOfCommand + ":/usr/bin:/bin:/usr/sbin:/sbin").c_str(), 1);
        ::setenv("TZ", "UTC", 1);
        ::setenv("LC_ALL", "C.UTF-8", 1);
        ::umask(022);
        for (auto const& [name, value] : environment_) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
        if (::chdir(folder_.c_str()) != 0 || (unprivileged_ && !dropPrivileges())) {
            ::_exit(125);
        }
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    if (inputFrom_ < 0) {
        ::close(in);
    }
    return {pid, outputTo_ >= 0 ? -1 : out, errorsTo_ >= 0 ? -1 : err};
}

Outcome vfs(TemporaryFolder const& folder, std::vector<std::string> words) {
    return CommandRun::vfs(std::move(words)).in(folder.path()).run();
}

Outcome shell(TemporaryFolder const& folder, std::string const& line) {
    return CommandRun::shell(line).in(folder.path()).run();
}

void writeFile(std::filesystem::path const& path, std::string const& bytes) {
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string readFile(std::filesystem::path const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace cli_test
