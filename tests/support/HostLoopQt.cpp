#include <QCoreApplication>
#include <QEventLoop>
#include <QSocketNotifier>
#include <array>
#include <stack>

#include <ClientComm/RunLoop.h>

#include "support/HostLoop.h"

namespace qbdkr::test {
namespace {

class QtLoop final : public HostLoop {
 public:
  QtLoop() {
#include "WatchInQt.inc"  // the lines of the page
  }

  void run() override {
    QEventLoop loop;
    loops_.push(&loop);
    loop.exec();
    loops_.pop();
  }

  void stop() override { loops_.top()->quit(); }

 private:
  int count_ = 1;
  std::array<char, 10> name_{"HostProbe"};
  std::array<char*, 2> arguments_{name_.data(), nullptr};
  QCoreApplication app{count_, arguments_.data()};
  std::stack<QEventLoop*> loops_;
};

}  // namespace

std::unique_ptr<HostLoop> HostLoop::make() { return std::make_unique<QtLoop>(); }

}  // namespace qbdkr::test
