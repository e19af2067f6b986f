#include "child_process.hpp"

#include <cerrno>
#include <cstddef>
#include <exception>
#include <future>
#include <grp.h>
#include <iterator>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace foundation::storage::provider::local::test {

namespace {

constexpr unsigned nobody = 65534;

void check(bool done, char const* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

#if defined(__SANITIZE_THREAD__)
extern "C" {
void AnnotateIgnoreReadsBegin(char const* file, int line);
void AnnotateIgnoreReadsEnd(char const* file, int line);
void AnnotateIgnoreWritesBegin(char const* file, int line);
void AnnotateIgnoreWritesEnd(char const* file, int line);
}

/// What a stand-in does is ordered by the kernel, which holds the caller until it is done. The
/// thread sanitizer does not see that.
class OrderedByTheKernel {
  public:
    OrderedByTheKernel() {
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    }
    OrderedByTheKernel(OrderedByTheKernel const&) = delete;
    OrderedByTheKernel& operator=(OrderedByTheKernel const&) = delete;
    ~OrderedByTheKernel() {
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    }
};
#else
struct OrderedByTheKernel {
    OrderedByTheKernel() {} // not trivial, so that a value of it counts as used
};
#endif

std::string outcomeOf(std::function<std::string()> const& work) {
    try {
        return work();
    } catch (std::exception const& e) {
        return std::string("threw: ") + e.what();
    }
}

} // namespace

std::string inChild(std::function<std::string()> const& work) {
    int ends[2];
    check(::pipe(ends) == 0, "pipe");
    pid_t const child = ::fork();
    check(child >= 0, "fork");
    if (child == 0) {
        ::close(ends[0]);
        std::string const text = outcomeOf(work);
        bool const told =
            ::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ::_exit(told ? 0 : 1);
    }
    ::close(ends[1]);
    std::string result;
    char buffer[512];
    for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
        result.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(ends[0]);
    int status = 0;
    check(::waitpid(child, &status, 0) == child, "waitpid");
    if (WIFSIGNALED(status)) {
        return "died: " + std::to_string(WTERMSIG(status));
    }
    return result;
}

void becomeUnprivileged() {
    if (::geteuid() == 0) {
        check(::setgroups(0, nullptr) == 0, "setgroups");
        check(::setresgid(nobody, nobody, nobody) == 0, "setresgid");
        check(::setresuid(nobody, nobody, nobody) == 0, "setresuid");
    }
}

void injectFaults(std::vector<CallFault> const& faults) {
    std::vector<sock_filter> program{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    for (CallFault const& fault : faults) {
        auto const argument =
            static_cast<unsigned>(offsetof(seccomp_data, args)) + 8 * fault.argument;
        sock_filter const rule[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(fault.call), 0, 4),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, argument),
            BPF_STMT(BPF_ALU | BPF_AND | BPF_K, fault.bits),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, fault.bits, 0, 1),
            BPF_STMT(BPF_RET | BPF_K,
                     SECCOMP_RET_ERRNO | (static_cast<unsigned>(fault.error) & SECCOMP_RET_DATA)),
        };
        program.insert(program.end(), std::begin(rule), std::end(rule));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    sock_fprog const filter{static_cast<unsigned short>(program.size()), program.data()};
    check(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "PR_SET_NO_NEW_PRIVS");
    check(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0, "PR_SET_SECCOMP");
}

void allowMemoryCallsOnly() {
    std::vector<sock_filter> program{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (int const call :
         {SYS_brk, SYS_mmap, SYS_munmap, SYS_mremap, SYS_mprotect, SYS_madvise, SYS_futex,
          SYS_sched_yield, SYS_write, SYS_sigaltstack, SYS_exit_group}) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    sock_fprog const filter{static_cast<unsigned short>(program.size()), program.data()};
    check(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "PR_SET_NO_NEW_PRIVS");
    check(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0, "PR_SET_SECCOMP");
}

void interceptCalls(int call, unsigned argument, unsigned bits, CallStandIn standIn) {
    auto const at = static_cast<unsigned>(offsetof(seccomp_data, args)) + 8 * argument;
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 4),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, at),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, bits),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, bits, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog const filter{static_cast<unsigned short>(std::size(program)), program};
    // The filter is this thread's alone; the other one, started before it, is free of it.
    std::promise<int> listener;
    std::thread([listening = listener.get_future(), standIn = std::move(standIn)]() mutable {
        int const calls = listening.get();
        for (;;) {
            seccomp_notif request{};
            if (::ioctl(calls, SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) {
                if (errno == EINTR || errno == ENOENT) {
                    continue;
                }
                return;
            }
            seccomp_notif_resp response{};
            response.id = request.id;
            std::optional<long> const result = [&] {
                OrderedByTheKernel const ordered;
                return standIn(request.data.args);
            }();
            if (!result) {
                response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
            } else if (*result < 0) {
                response.error = static_cast<int>(*result);
            } else {
                response.val = *result;
            }
            ::ioctl(calls, SECCOMP_IOCTL_NOTIF_SEND, &response);
        }
    }).detach();
    check(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "PR_SET_NO_NEW_PRIVS");
    long const calls =
        ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter);
    check(calls >= 0, "SECCOMP_FILTER_FLAG_NEW_LISTENER");
    listener.set_value(static_cast<int>(calls));
}

bool mountMemory(std::string const& folder, std::string const& size) {
    std::string const options = "size=" + size;
    return ::unshare(CLONE_NEWNS) == 0 &&
           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

bool mayMount() {
    return inChild([] {
               return std::string(
                   ::unshare(CLONE_NEWNS) == 0 &&
                           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                       ? "yes"
                       : "no");
           }) == "yes";
}

} // namespace foundation::storage::provider::local::test
