#include "call_faults.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <link.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <system_error>
#include <ucontext.h>
#include <vector>

static_assert(__x86_64__, "the registers of a system call are those of x86-64");

extern "C" {
/// Does a system call that the filter lets pass, because of where it is made.
long faultSweepRawCall(long number, long const* arguments);
extern char const faultSweepRawCallEnd[];
}

asm(R"(
    .text
    .globl faultSweepRawCall
    .type faultSweepRawCall, @function
faultSweepRawCall:
    mov %rdi, %rax
    mov %rsi, %rcx
    mov 0(%rcx), %rdi
    mov 8(%rcx), %rsi
    mov 16(%rcx), %rdx
    mov 24(%rcx), %r10
    mov 32(%rcx), %r8
    mov 40(%rcx), %r9
    syscall
    .globl faultSweepRawCallEnd
faultSweepRawCallEnd:
    ret
    .size faultSweepRawCall, . - faultSweepRawCall
)");

namespace fault_sweep {

namespace {

/// Has nothing to do with storage, and a failure of it is another subject.
constexpr int untouched[] = {
    SYS_mmap,
    SYS_munmap,
    SYS_mprotect,
    SYS_madvise,
    SYS_mremap,
    SYS_brk,
    SYS_futex,
    SYS_sched_yield,
    SYS_clone,
    SYS_clone3,
    SYS_exit,
    SYS_exit_group,
    SYS_rseq,
    SYS_gettid,
    SYS_getpid,
    SYS_set_robust_list,
    SYS_tgkill,
    SYS_kill,
    SYS_wait4,
    SYS_sched_getaffinity,
    SYS_prctl,
    SYS_nanosleep,
    SYS_clock_gettime,
    SYS_clock_nanosleep,
    SYS_rt_sigreturn,
    SYS_rt_sigaction,
    SYS_rt_sigprocmask,
    SYS_sigaltstack,
    SYS_set_tid_address,
    SYS_alarm,
    SYS_getrusage,
    SYS_membarrier,
    SYS_setitimer,
    SYS_pipe2, // a sanitizer looks with one whether memory can be read; no storage makes one
};

struct Armed {
    CallFault fault{};
    std::size_t at = 0;
};

// Written while nothing is armed, and read by the handler on any thread.
constexpr std::size_t missingAtMost = 8;
std::array<MissingCall, missingAtMost> missingCalls;
std::atomic<std::size_t> missingCount = 0;
Armed armed;
std::atomic<bool> isArmed = false;
std::atomic<std::size_t> seen = 0;
std::atomic<int> injectedCall = -1;

static_assert(std::atomic<std::size_t>::is_always_lock_free);

/// Which argument is the number of bytes that may be fewer; -1 for none.
int countedArgument(int call) noexcept {
    switch (call) {
    case SYS_read:
    case SYS_write:
    case SYS_pread64:
    case SYS_pwrite64:
        return 2;
    case SYS_copy_file_range:
        return 4;
    case SYS_sendfile:
        return 3;
    default:
        return -1;
    }
}

bool isMissing(int call, long const* arguments, long& error) noexcept {
    std::size_t const count = missingCount.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i) {
        MissingCall const& missing = missingCalls[i];
        auto const bits = static_cast<long>(missing.bits);
        if (missing.call == call && (arguments[missing.argument] & bits) == bits) {
            error = -missing.error;
            return true;
        }
    }
    return false;
}

bool fits(CallFault const& fault, int call, long const* arguments) noexcept {
    if (fault.kind == CallFault::Kind::Error) {
        return true;
    }
    int const counted = countedArgument(call);
    return counted >= 0 && arguments[counted] > 1;
}

bool isChosen(int call, long const* arguments) noexcept {
    if (!isArmed.load(std::memory_order_acquire) || !fits(armed.fault, call, arguments)) {
        return false;
    }
    std::size_t const number = seen.fetch_add(1, std::memory_order_relaxed) + 1;
    if (number == armed.at) {
        injectedCall.store(call, std::memory_order_relaxed);
        return true;
    }
    return number > armed.at && armed.fault.span == CallFault::Span::Lasting &&
           call == injectedCall.load(std::memory_order_relaxed);
}

long answer(int call, long* arguments) noexcept {
    long error = 0;
    if (isMissing(call, arguments, error)) {
        return error;
    }
    if (!isChosen(call, arguments)) {
        return faultSweepRawCall(call, arguments);
    }
    if (armed.fault.kind == CallFault::Kind::ShortCount) {
        long& count = arguments[countedArgument(call)];
        count = (count + 1) / 2;
        return faultSweepRawCall(call, arguments);
    }
    if (call == SYS_close) {
        // Whatever close(2) says, the descriptor is gone.
        static_cast<void>(faultSweepRawCall(call, arguments));
    }
    return -armed.fault.error;
}

/// Where the code of the sanitizers lies, that make calls of their own; written before the trap.
struct CodeRange {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};
std::array<CodeRange, 8> sanitizerCode;

int addSanitizerCode(dl_phdr_info* object, std::size_t, void* next) noexcept {
    std::string_view const name(object->dlpi_name);
    bool const isSanitizer =
        name.find("/libasan.") != name.npos || name.find("/libubsan.") != name.npos ||
        name.find("/liblsan.") != name.npos || name.find("/libtsan.") != name.npos;
    auto& at = *static_cast<std::size_t*>(next);
    for (int i = 0; isSanitizer && i < object->dlpi_phnum && at < sanitizerCode.size(); ++i) {
        auto const& segment = object->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
            std::uintptr_t const begin = object->dlpi_addr + segment.p_vaddr;
            sanitizerCode[at++] = {begin, begin + segment.p_memsz};
        }
    }
    return 0;
}

bool isOfASanitizer(void const* place) noexcept {
    auto const address = reinterpret_cast<std::uintptr_t>(place);
    return std::any_of(sanitizerCode.begin(), sanitizerCode.end(), [&](CodeRange const& code) {
        return address >= code.begin && address < code.end;
    });
}

void onTrap(int, siginfo_t* signal, void* context) {
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    long arguments[] = {registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                        registers[REG_R10], registers[REG_R8],  registers[REG_R9]};
    // What an operation asks for comes from the C library, also where a sanitizer looks on; what a
    // sanitizer writes into its pipe comes from itself.
    registers[REG_RAX] = isOfASanitizer(signal->si_call_addr)
                             ? faultSweepRawCall(signal->si_syscall, arguments)
                             : answer(signal->si_syscall, arguments);
}

void check(bool done, char const* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

} // namespace

void trapCalls() {
    std::size_t next = 0;
    ::dl_iterate_phdr(&addSanitizerCode, &next);
    struct sigaction action {};
    action.sa_sigaction = &onTrap;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    check(::sigaction(SIGSYS, &action, nullptr) == 0, "sigaction");

    auto const end = reinterpret_cast<std::uintptr_t>(&faultSweepRawCallEnd);
    constexpr auto place = offsetof(seccomp_data, instruction_pointer);
    std::vector<sock_filter> program{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, place),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(end), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, place + 4),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(end >> 32), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
    };
    for (int const call : untouched) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
    sock_fprog const filter{static_cast<unsigned short>(program.size()), program.data()};
    check(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "PR_SET_NO_NEW_PRIVS");
    check(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0, "PR_SET_SECCOMP");
}

void setMissingCalls(std::span<MissingCall const> missing) {
    missingCount = 0;
    std::copy_n(missing.begin(), std::min(missing.size(), missingAtMost), missingCalls.begin());
    missingCount = std::min(missing.size(), missingAtMost);
}

void armFault(CallFault const& fault, std::size_t at) {
    armed = {fault, at};
    seen = 0;
    injectedCall = -1;
    isArmed = true;
}

CallCount disarmFault() {
    isArmed = false;
    int const call = injectedCall;
    return {seen, call >= 0, call};
}

std::string nameOfCall(int call) {
    struct {
        int call;
        char const* name;
    } const names[] = {
        {SYS_openat, "openat"},
        {SYS_openat2, "openat2"},
        {SYS_open, "open"},
        {SYS_close, "close"},
        {SYS_read, "read"},
        {SYS_write, "write"},
        {SYS_pread64, "pread64"},
        {SYS_pwrite64, "pwrite64"},
        {SYS_copy_file_range, "copy_file_range"},
        {SYS_lseek, "lseek"},
        {SYS_ftruncate, "ftruncate"},
        {SYS_fstat, "fstat"},
        {SYS_newfstatat, "newfstatat"},
        {SYS_statx, "statx"},
        {SYS_fstatfs, "fstatfs"},
        {SYS_linkat, "linkat"},
        {SYS_symlinkat, "symlinkat"},
        {SYS_readlinkat, "readlinkat"},
        {SYS_readlink, "readlink"},
        {SYS_unlinkat, "unlinkat"},
        {SYS_renameat, "renameat"},
        {SYS_renameat2, "renameat2"},
        {SYS_mkdirat, "mkdirat"},
        {SYS_getdents64, "getdents64"},
        {SYS_fchmod, "fchmod"},
        {SYS_fchmodat, "fchmodat"},
        {SYS_fchown, "fchown"},
        {SYS_utimensat, "utimensat"},
        {SYS_faccessat, "faccessat"},
        {SYS_faccessat2, "faccessat2"},
        {SYS_fcntl, "fcntl"},
        {SYS_ioctl, "ioctl"},
        {SYS_getrandom, "getrandom"},
        {SYS_fsync, "fsync"},
    };
    auto const* const found = std::find_if(std::begin(names), std::end(names),
                                           [&](auto const& one) { return one.call == call; });
    return found != std::end(names) ? found->name : "call " + std::to_string(call);
}

} // namespace fault_sweep
