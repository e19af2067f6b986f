#include "bytes.hpp"
#include "contest.hpp"

#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr long size = 2L << 30;
constexpr long mebibyte = 1L << 20;
constexpr long goal = 16;

void makeSparseFile(std::filesystem::path const& path) {
    makeFile(path, 0);
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
}

[[noreturn]] void becomeCat(std::filesystem::path const& command,
                            std::filesystem::path const& file) {
    int const nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0 && ::dup2(nowhere, STDOUT_FILENO) >= 0) {
        ::execl(command.c_str(), "vfs", "cat", file.c_str(), static_cast<char*>(nullptr));
    }
    ::_exit(127);
}

} // namespace

void showMemoryOfCat(Workplace const& place) {
    std::filesystem::path const file = place.path / "sparse";
    makeSparseFile(file);
    pid_t const child = ::fork();
    if (child < 0) {
        fail("fork");
    }
    if (child == 0) {
        becomeCat(place.command, file);
    }
    int status = 0;
    struct rusage usage {};
    if (::wait4(child, &status, 0, &usage) != child) {
        fail("wait4");
    }
    std::filesystem::remove(file);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error(place.command.string() + " cat failed with status " +
                                 std::to_string(status));
    }
    double const resident = static_cast<double>(usage.ru_maxrss) * 1024 / mebibyte;
    std::printf("\nvfs cat of a sparse file of 2 GiB\n%-32s %7.1f MiB, less than %ld: %s\n",
                "resident memory at most", resident, goal,
                resident < static_cast<double>(goal) ? "met" : "missed");
    std::fflush(stdout);
}

} // namespace bench
