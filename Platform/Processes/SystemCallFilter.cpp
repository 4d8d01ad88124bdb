#include "Platform/Processes/SystemCallFilter.h"

#include <cstddef>
#include <cstdint>
#include <linux/audit.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace kelvane {
namespace {

// System call numbers depend on the architecture.
#if defined(__x86_64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_AARCH64;
#else
constexpr std::uint32_t architecture = 0; // matches no program
#endif
#if defined(SYS_chmod)
constexpr std::uint32_t chmodWithoutFolder = SYS_chmod;
#else
constexpr std::uint32_t chmodWithoutFolder = SYS_fchmod; // newer architectures have no chmod
#endif
constexpr std::uint32_t fchmodat2 = 452; // not in the headers of older systems

} // namespace

SystemCallFilter filterOfReadOnlyModes() {
    struct Row {
        std::uint32_t call;
        std::uint32_t modeArgument; // 0-based
    };
    constexpr Row rows[] = {{SYS_fchmod, 1}, {SYS_fchmodat, 2}, {fchmodat2, 2}, {chmodWithoutFolder, 1}};
    constexpr std::uint16_t load = BPF_LD | BPF_W | BPF_ABS;
    constexpr std::uint16_t ifEqual = BPF_JMP | BPF_JEQ | BPF_K;
    constexpr std::uint16_t ifSet = BPF_JMP | BPF_JSET | BPF_K;
    constexpr std::uint16_t answer = BPF_RET | BPF_K;
    // The two numbers after a condition: how many instructions to skip when it holds, and when it does not.
    SystemCallFilter lines{{load, 0, 0, offsetof(seccomp_data, arch)},
                           {ifEqual, 1, 0, architecture},
                           {answer, 0, 0, SECCOMP_RET_ALLOW}};
    for (const Row& row : rows) {
        const auto mode = // the lower half, on the little-endian architectures above
            static_cast<std::uint32_t>(offsetof(seccomp_data, args)) + row.modeArgument * 8;
        lines.insert(lines.end(), {{load, 0, 0, offsetof(seccomp_data, nr)},
                                   {ifEqual, 0, 3, row.call},
                                   {load, 0, 0, mode},
                                   {ifSet, 1, 0, S_IWUSR},
                                   {answer, 0, 0, SECCOMP_RET_ERRNO}}); // errno 0: success
    }
    lines.push_back({answer, 0, 0, SECCOMP_RET_ALLOW});
    return lines;
}

void filterSystemCalls(SystemCallFilter& filter) {
    const sock_fprog program{static_cast<std::uint16_t>(filter.size()), filter.data()};
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0); // without this only root may install a filter
    ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

} // namespace kelvane
