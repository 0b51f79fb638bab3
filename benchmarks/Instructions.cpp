// The operations whose instructions are counted, by scripts/instructions. Each runs so often that
// the start of the program does not matter, and only the functions whose names begin with "counted"
// are counted. One thread, one process: it sends events to itself.

#include <poll.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPVersion.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Events/RPCTransport.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Samples.h"

// Lets no time pass for the library, which looks for news on its connection every now and then: how
// often, would depend on the machine.
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
  return time_point(std::chrono::hours(1));
}

namespace {

using qbdkr::bench::fail;

constexpr int rounds = 100;
constexpr std::string_view self = "com.Acme.Instructions";

class Counter : public qbdkr::QBHPAppEventBase {
 public:
  Counter() {
    qbdkr::QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName);
  }

  qbdkr::OSErr take(qbdkr::Text /*text*/) {
    if (++taken_ == wanted_) qbdkr::RunLoop::main().stop();
    return qbdkr::noErr;
  }

  // Runs the main run loop until so many events have come in all.
  void runUntil(int wanted) {
    wanted_ = wanted;
    qbdkr::RunLoop::main().run();
  }

  static constexpr std::string_view kClassName = "Counter";
  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{
        qbdkr::method<&Counter::take>(qbdkr::selector<&Counter::take>("take:"))};
    return table;
  }

 private:
  int taken_ = 0;
  int wanted_ = 0;
};

qbdkr::OSErr send() {
  constexpr std::array<std::string_view, 1> arguments{"eleven text"};
  return qbdkr::QBHPAppleEventSender::share().sendEvnet(self, Counter::kClassName,
                                                        "take:", arguments);
}

std::string propertyList() {
  std::string list = "<plist version=\"1.0\"><dict>";
  for (int i = 0; i < 20; ++i) {
    list += "<key>Key " + std::to_string(i) +
            "</key><array><string>A text &amp; more</string><integer>7</integer><true/></array>";
  }
  return list + "</dict></plist>";
}

// Has the events leave the bus. The thread of started requests reads the bus meanwhile, which a
// thread that posts does not do while no time passes.
void leaveTheBus() {
  for (int i = 0; i < 4; ++i) {
    bool isAnswered = false;
    const bool isStarted = qbdkr::RPCTransport::shared().start(
        {std::string(self), std::nullopt}, {"Counter", "unknown", {}}, {},
        [&isAnswered](const qbdkr::RPCTransport::Answer&) {
          qbdkr::RunLoop::main().perform([&isAnswered] {
            isAnswered = true;
            qbdkr::RunLoop::main().stop();
          });
        });
    if (!isStarted) fail("a request was not started");
    while (!isAnswered) qbdkr::RunLoop::main().run();
  }
}

// Waits until the bus has passed on what was sent: it all comes at once then.
void letTheBusWork() { poll(nullptr, 0, 500); }

}  // namespace

extern "C" {

[[gnu::noinline]] void countedSend() {
  for (int i = 0; i < rounds; ++i) {
    if (send() != qbdkr::noErr) fail("an event was not posted");
  }
}

[[gnu::noinline]] void countedReceive(Counter& counter, int wanted) { counter.runUntil(wanted); }

[[gnu::noinline]] void countedCompare() {
  for (int i = 0; i < rounds; ++i) {
    if (qbdkr::compareVersion("2.10.3b1", "2.10.3") != -1) fail("the order is wrong");
  }
}

[[gnu::noinline]] void countedParse(const std::string& list) {
  for (int i = 0; i < rounds; ++i) {
    if (!qbdkr::parsePropertyList(list)) fail("the list was not read");
  }
}

}  // extern "C"

int main() {
  std::printf("%d\n", rounds);
  // Everything once before it is counted: what is made on first use is no part of it.
  Counter counter;
  const auto name = [] {
    qbdkr::OSErr status = qbdkr::procNotFound;
    for (int i = 0; i < 1000 && status != qbdkr::noErr; ++i) {
      qbdkr::RunLoop::main().dispatch();
      poll(nullptr, 0, 10);
      status = send();
    }
    return status;
  };
  if (name() != qbdkr::noErr) fail("no bus");
  counter.runUntil(1);
  if (std::string_view(std::getenv("QBDKR_DIRECT")) == "1") leaveTheBus();

  countedSend();
  letTheBusWork();
  countedReceive(counter, 1 + rounds);
  countedCompare();
  countedParse(propertyList());
}
