#include "tests/durability/traced_process.h"

#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <map>
#include <string_view>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

#if defined(__aarch64__)
#include <elf.h>
#include <sys/uio.h>
#endif

namespace quomi::test {
namespace {

constexpr int kFailed = 1;
constexpr int kNotTraced = 2;
constexpr int kStopBeforeCall = SIGTRAP | (PTRACE_EVENT_SECCOMP << 8);

const std::map<std::uint64_t, std::string_view>& changingCalls() {
    static const std::map<std::uint64_t, std::string_view> calls {
        {SYS_write, "write"}, {SYS_pwrite64, "pwrite64"}, {SYS_writev, "writev"}, {SYS_pwritev, "pwritev"},
            {SYS_ftruncate, "ftruncate"}, {SYS_truncate, "truncate"}, {SYS_fallocate, "fallocate"},
            {SYS_fsync, "fsync"}, {SYS_fdatasync, "fdatasync"}, {SYS_openat, "openat"}, {SYS_unlinkat, "unlinkat"},
            {SYS_renameat2, "renameat2"}, {SYS_renameat, "renameat"}, {SYS_linkat, "linkat"}, {SYS_mkdirat, "mkdirat"},
            {SYS_fchmod, "fchmod"},
#if defined(__x86_64__)
            {SYS_open, "open"}, {SYS_unlink, "unlink"}, {SYS_rename, "rename"}, {SYS_link, "link"},
            {SYS_mkdir, "mkdir"}, {SYS_rmdir, "rmdir"},
#endif
    };
    return calls;
}

bool makesFile(std::uint64_t flags) {
    return (flags & static_cast<std::uint64_t>(O_CREAT | O_TRUNC)) != 0;
}

/// The third argument of the system call that the process stands before: the count of a write.
void setCount(pid_t process, std::size_t count) {
#if defined(__x86_64__)
    ::ptrace(PTRACE_POKEUSER, process, offsetof(user_regs_struct, rdx), count);
#elif defined(__aarch64__)
    user_regs_struct registers{};
    iovec all{&registers, sizeof registers};
    ::ptrace(PTRACE_GETREGSET, process, NT_PRSTATUS, &all);
    registers.regs[2] = count;
    ::ptrace(PTRACE_SETREGSET, process, NT_PRSTATUS, &all);
#else
#error "which register holds the third argument of a system call?"
#endif
}

SystemCall callBefore(pid_t process) {
    SystemCall call;
    __ptrace_syscall_info info{};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info);
    call.number = info.seccomp.nr;
    for (std::size_t i = 0; i < call.arguments.size(); ++i) call.arguments[i] = info.seccomp.args[i];
    return call;
}

/// From now on the process stops before these calls, and only there: a stop costs more than most calls.
bool stopBeforeCalls(Extent extent) {
    const auto instruction = [](int code, std::uint32_t operand, std::uint8_t skippedIfUnequal) {
        return sock_filter{static_cast<std::uint16_t>(code), 0, skippedIfUnequal, operand};
    };
    std::vector<sock_filter> program{instruction(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr), 0)};
    for (const auto& [number, name] : changingCalls()) {
        program.push_back(instruction(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 1));
        program.push_back(instruction(BPF_RET | BPF_K, SECCOMP_RET_TRACE, 0));
    }
    const bool all = extent == Extent::allCalls;
    program.push_back(instruction(BPF_RET | BPF_K, all ? SECCOMP_RET_TRACE : SECCOMP_RET_ALLOW, 0));
    sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

[[noreturn]] void runTraced(const std::function<void()>& work, Extent extent) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(kNotTraced);
    ::raise(SIGSTOP);
    if (!stopBeforeCalls(extent)) ::_exit(kNotTraced);
    try {
        work();
    } catch (...) {
        ::_exit(kFailed);
    }
    ::_exit(0);
}

/// Lets the process run to its next stop, or its end. `how` is PTRACE_CONT or PTRACE_SYSCALL.
int resume(pid_t process, __ptrace_request how, int signal) {
    int status = 0;
    ::ptrace(how, process, nullptr, signal);
    ::waitpid(process, &status, 0);
    return status;
}

Ending endingOf(int status) {
    if (WIFSIGNALED(status)) return WTERMSIG(status) == SIGKILL ? Ending::killed : Ending::failed;
    if (WEXITSTATUS(status) == kNotTraced) return Ending::notTraced;
    return WEXITSTATUS(status) == 0 ? Ending::finished : Ending::failed;
}

void kill(pid_t process, const Decision& decision) {
    if (decision.kind == Decision::writeAndKill) {
        setCount(process, decision.bytes);
        resume(process, PTRACE_SYSCALL, 0);  // to the end of the call
    }
    ::kill(process, SIGKILL);
}

}  // namespace

bool SystemCall::changesFiles() const {
    if (number == SYS_openat) return makesFile(arguments[2]);
#if defined(__x86_64__)
    if (number == SYS_open) return makesFile(arguments[1]);
#endif
    return changingCalls().contains(number);
}

std::size_t SystemCall::bytes() const {
    return number == SYS_write || number == SYS_pwrite64 ? static_cast<std::size_t>(arguments[2]) : 0;
}

std::string SystemCall::description() const {
    const auto found = changingCalls().find(number);
    if (found == changingCalls().end()) return fmt::format("system call {}", number);
    return bytes() > 0 ? fmt::format("{} of {} bytes", found->second, bytes()) : std::string(found->second);
}

Ending trace(const std::function<void()>& work, Extent extent, const std::function<Decision(const SystemCall&)>& ask) {
    const pid_t process = ::fork();
    if (process == 0) runTraced(work, extent);
    int status = 0;
    if (process < 0 || ::waitpid(process, &status, 0) != process) return Ending::failed;
    if (!WIFSTOPPED(status)) return endingOf(status);
    ::ptrace(PTRACE_SETOPTIONS, process, nullptr, PTRACE_O_TRACESECCOMP | PTRACE_O_EXITKILL);
    for (status = resume(process, PTRACE_CONT, 0); WIFSTOPPED(status);) {
        const bool beforeCall = status >> 8 == kStopBeforeCall;
        if (beforeCall) {
            const SystemCall call = callBefore(process);
            const bool counts = extent == Extent::allCalls || call.changesFiles();
            if (const auto decision = counts ? ask(call) : Decision{}; decision.kind != Decision::goOn) {
                kill(process, decision);
            }
        }
        status = resume(process, PTRACE_CONT, beforeCall ? 0 : WSTOPSIG(status));
    }
    return endingOf(status);
}

}  // namespace quomi::test
