#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <ClientComm/LogHandler.h>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/DBus/BusReceiver.h"
#include "Platform/Events/DBus/BusSender.h"
#include "Platform/Events/NativeTransport.h"
#include "Platform/Events/RPCTransport.h"
#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

class BusTransport final : public RPCTransport {
 public:
  OSErr post(const RPCTarget& target, const RPCEvent& event) override {
    if (const OSErr refused = refusal(target, event); refused != noErr) return refused;
    const OSErr status = sender().post(target, event);
    logObstacleOnce();
    return status;
  }

  Answer ask(const RPCTarget& target, const RPCEvent& event) override {
    if (const OSErr refused = refusal(target, event); refused != noErr) return {refused, {}};
    auto answer = sender().ask(target, event);
    logObstacleOnce();
    return answer;
  }

  OSErr flush(std::chrono::steady_clock::time_point deadline) override {
    return sender().flush(deadline);
  }

  bool start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
             Completion completion) override {
    const OSErr refused = refusal(target, event);
    auto logAndComplete = [this, completion = std::move(completion)](Answer answer) {
      logObstacleOnce();
      completion(std::move(answer));
    };
    return sender().start(target, std::move(event), limits, std::move(logAndComplete), refused);
  }

  [[nodiscard]] std::optional<std::string> knownObstacle() const override {
    const BusSender* sender = sender_.load();
    const auto process = sender == nullptr ? std::nullopt : sender->foreignProcess();
    if (!process) return std::nullopt;
    return "the bus knows this process as " + std::to_string(*process) +
           ": behind a proxy, events may not arrive";
  }

  void setHandler(Handler handler) override {
    BusReceiver::shared().setHandler(std::move(handler));
  }

  void removeHandler() override { BusReceiver::shared().removeHandler(); }

  void watchStanding(const std::function<void()>& onLost) override {
    BusReceiver::shared().watchStanding(onLost);
  }
  [[nodiscard]] Standing standing() override { return BusReceiver::shared().standing(); }
  void whenHandled(std::function<void()> done) override {
    BusReceiver::shared().whenHandled(std::move(done));
  }

  // Called in a forked child: the connection, its lock and the threads that wait on it belong to
  // the parent. The child gets its own on first use.
  void forgetParentsSender() { sender_.store(nullptr); }

 private:
  static OSErr refusal(const RPCTarget& target, const RPCEvent& event) {
    if (!isSendable(event)) return paramErr;
    if (target.bundleID.empty()) return procNotFound;
    return isSendable(target.bundleID) ? noErr : paramErr;
  }

  void logObstacleOnce() {
    if (!sender().foreignProcess() || isObstacleLogged_.exchange(true)) return;
    const auto obstacle = knownObstacle();
    if (!obstacle) return;
    record(StepKind::busObstacle, *obstacle);
    log(LogLevel::error, LogCategory::bus, "%@", {privateArgument(*obstacle)});
  }

  BusSender& sender() {
    BusSender* current = sender_.load();
    if (current != nullptr) return *current;
    auto made = std::make_unique<BusSender>();
    if (sender_.compare_exchange_strong(current, made.get())) return *made.release();
    return *current;
  }

  std::atomic<bool> isObstacleLogged_{false};
  std::atomic<BusSender*> sender_{nullptr};  // never destroyed: threads send until the process ends
};

}  // namespace

RPCTransport& nativeTransport() {
  static NeverDestroyed transport([] { return BusTransport(); });
  static const int watched =
      pthread_atfork(nullptr, nullptr, [] { transport->forgetParentsSender(); });
  static_cast<void>(watched);
  return *transport;
}

}  // namespace qbdkr
