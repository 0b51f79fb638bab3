#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/PeerWatch.h"
#include "support/Environment.h"

namespace qbdkr::test {
namespace {

// A session bus that closes each connection at once, from a process of its own.
class ClosingBus {
 public:
  ClosingBus() {
    const std::string path = directory_.path() / "bus";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(path, address.sun_path);
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(socket.get(), 8), 0);
    process_ = ::fork();
    if (process_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (;;) ::close(::accept(socket.get(), nullptr, nullptr));
    }
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
  }
  ClosingBus(const ClosingBus&) = delete;
  ClosingBus& operator=(const ClosingBus&) = delete;
  ~ClosingBus() {
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }

 private:
  TemporaryDirectory directory_;
  pid_t process_ = -1;
};

TEST(PeerWatchTest, BusThatClosesEachConnectionTellsNothing) {
  const ClosingBus bus;
  const auto watch = PeerWatch::make("com.Acme.Helper");
  ASSERT_NE(watch, nullptr);
  const auto deadline = PeerWatch::Clock::now() + std::chrono::milliseconds(500);
  EXPECT_EQ(watch->wait(deadline), PeerWatch::News::none);
  EXPECT_GE(PeerWatch::Clock::now(), deadline);
}

}  // namespace
}  // namespace qbdkr::test
