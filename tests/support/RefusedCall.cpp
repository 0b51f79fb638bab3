#include "support/RefusedCall.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <ucontext.h>

#include <array>
#include <stdexcept>

namespace qbdkr::test {
namespace {

void refuse(long number, unsigned action) {
  std::array<sock_filter, 4> program{
      {{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
       {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, static_cast<unsigned>(number)},
       {BPF_RET | BPF_K, 0, 0, action},
       {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW}}};
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    throw std::runtime_error("calls cannot be refused");
  }
}

void (*atCall)() = nullptr;

void setResult(void* context, int result) {
  auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
  registers.gregs[REG_RAX] = result;
#elif defined(__aarch64__)
  registers.regs[0] = static_cast<unsigned>(result);
#else
#error "name the register of a system call's result"
#endif
}

}  // namespace

void failCall(long number, int error) {
  refuse(number, SECCOMP_RET_ERRNO | static_cast<unsigned>(error));
}

void dieAtCall(long number) { refuse(number, SECCOMP_RET_KILL_PROCESS); }

void runAtCall(long number, void (*function)()) {
  atCall = function;
  struct sigaction action {};
  action.sa_flags = SA_SIGINFO;
  action.sa_sigaction = [](int, siginfo_t*, void* context) {
    atCall();
    setResult(context, 0);
  };
  sigaction(SIGSYS, &action, nullptr);
  refuse(number, SECCOMP_RET_TRAP);
}

}  // namespace qbdkr::test
