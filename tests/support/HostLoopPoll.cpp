#include <poll.h>

#include <ClientComm/RunLoop.h>

#include "support/HostLoop.h"

namespace qbdkr::test {
namespace {

class PollLoop final : public HostLoop {
 public:
  void run() override {
    const int level = ++levels_;
    RunLoop& loop = RunLoop::main();
    pollfd readable{loop.descriptor(), POLLIN, 0};
    while (levels_ >= level) {
      ::poll(&readable, 1, -1);
      loop.dispatch();
    }
  }

  void stop() override { --levels_; }

 private:
  int levels_ = 0;
};

}  // namespace

std::unique_ptr<HostLoop> HostLoop::make() { return std::make_unique<PollLoop>(); }

}  // namespace qbdkr::test
