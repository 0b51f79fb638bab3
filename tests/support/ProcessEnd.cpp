#include "support/ProcessEnd.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace qbdkr::test {

ProcessEnd::ProcessEnd(pid_t process)
    : descriptor_(static_cast<int>(syscall(SYS_pidfd_open, process, 0))) {
  if (!descriptor_) throw std::system_error(errno, std::generic_category(), "pidfd_open");
}

bool ProcessEnd::comesWithin(std::chrono::milliseconds time) const {
  pollfd end{descriptor_.get(), POLLIN, 0};
  return ::poll(&end, 1, static_cast<int>(time.count())) > 0;
}

}  // namespace qbdkr::test
