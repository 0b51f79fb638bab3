#include "support/RefusedCall.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/prctl.h>

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

}  // namespace

void failCall(long number, int error) {
  refuse(number, SECCOMP_RET_ERRNO | static_cast<unsigned>(error));
}

void dieAtCall(long number) { refuse(number, SECCOMP_RET_KILL_PROCESS); }

}  // namespace qbdkr::test
