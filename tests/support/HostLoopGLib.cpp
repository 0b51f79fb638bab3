#include <glib-unix.h>

#include <stack>

#include <ClientComm/RunLoop.h>

#include "support/HostLoop.h"

namespace qbdkr::test {
namespace {

class GLibLoop final : public HostLoop {
 public:
  GLibLoop() {
#include "WatchInGLib.inc"  // the lines of the page
  }

  void run() override {
    loops_.push(g_main_loop_new(nullptr, FALSE));
    g_main_loop_run(loops_.top());
    g_main_loop_unref(loops_.top());
    loops_.pop();
  }

  void stop() override { g_main_loop_quit(loops_.top()); }

 private:
  std::stack<GMainLoop*> loops_;
};

}  // namespace

std::unique_ptr<HostLoop> HostLoop::make() { return std::make_unique<GLibLoop>(); }

}  // namespace qbdkr::test
