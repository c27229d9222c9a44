#include "host/files/decoder_filter.h"

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>
#include <vector>

namespace qmr {

#if defined(__x86_64__) || defined(__aarch64__)

namespace {

#if defined(__x86_64__)
constexpr unsigned kArchitecture = AUDIT_ARCH_X86_64;
#else
constexpr unsigned kArchitecture = AUDIT_ARCH_AARCH64;
#endif

// What a decoder of images never needs, and code that took it over would want first.
constexpr unsigned kDenied[] = {
#ifdef __NR_fork
    __NR_fork,   __NR_vfork,
#endif
    __NR_execve, __NR_execveat, __NR_ptrace,   __NR_process_vm_writev, __NR_process_vm_readv,
    __NR_kill,   __NR_tkill,    __NR_socket,   __NR_connect,           __NR_bind,
    __NR_setsid, __NR_setpgid,  __NR_prlimit64};

sock_filter Statement(unsigned code, unsigned value) {
  return BPF_STMT(static_cast<__u16>(code), value);
}
sock_filter Jump(unsigned code, unsigned value, unsigned ifTrue, unsigned ifFalse) {
  return BPF_JUMP(static_cast<__u16>(code), value, static_cast<__u8>(ifTrue), static_cast<__u8>(ifFalse));
}

}  // namespace

void FilterSystemCalls() {
  constexpr unsigned kLoad = BPF_LD | BPF_W | BPF_ABS;
  constexpr unsigned kEqual = BPF_JMP | BPF_JEQ | BPF_K;
  const auto answer = [](unsigned what) { return Statement(BPF_RET | BPF_K, what); };
  const sock_filter refuse = answer(SECCOMP_RET_ERRNO | EPERM);

  std::vector<sock_filter> rules = {Statement(kLoad, offsetof(seccomp_data, arch)), Jump(kEqual, kArchitecture, 1, 0),
                                    answer(SECCOMP_RET_KILL_PROCESS), Statement(kLoad, offsetof(seccomp_data, nr)),
                                    // Numbers of the x32 calls, which would pass by the list.
                                    Jump(BPF_JMP | BPF_JGE | BPF_K, 0x40000000, 0, 1), refuse};
  for (const unsigned number : kDenied) {
    rules.push_back(Jump(kEqual, number, 0, 1));
    rules.push_back(refuse);
  }
  // Its flags lie behind a pointer and can't be looked at; the C library falls back to the older call.
  rules.push_back(Jump(kEqual, __NR_clone3, 0, 1));
  rules.push_back(answer(SECCOMP_RET_ERRNO | ENOSYS));
  rules.push_back(Jump(kEqual, __NR_clone, 0, 3));
  rules.push_back(Statement(kLoad, offsetof(seccomp_data, args)));
  rules.push_back(Jump(BPF_JMP | BPF_JSET | BPF_K, CLONE_THREAD, 1, 0));
  rules.push_back(refuse);
  rules.push_back(answer(SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<unsigned short>(rules.size()), rules.data()};
  prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

#else

void FilterSystemCalls() {}

#endif

}  // namespace qmr
