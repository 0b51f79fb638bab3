#include <atomic>
#include <chrono>
#include <functional>
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
    const OSErr status = BusSender::shared().post(target, event);
    logObstacleOnce();
    return status;
  }

  Answer ask(const RPCTarget& target, const RPCEvent& event) override {
    if (const OSErr refused = refusal(target, event); refused != noErr) return {refused, {}};
    auto answer = BusSender::shared().ask(target, event);
    logObstacleOnce();
    return answer;
  }

  OSErr flush(std::chrono::steady_clock::time_point deadline) override {
    return BusSender::shared().flush(deadline);
  }

  bool start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
             Completion completion) override {
    const OSErr refused = refusal(target, event);
    auto logAndComplete = [this, completion = std::move(completion)](Answer answer) {
      logObstacleOnce();
      completion(std::move(answer));
    };
    return BusSender::shared().start(target, std::move(event), limits, std::move(logAndComplete),
                                     refused);
  }

  [[nodiscard]] std::optional<std::string> knownObstacle() const override {
    const auto process = BusSender::shared().foreignProcess();
    if (!process) return std::nullopt;
    return "the bus knows this process as " + std::to_string(*process) +
           ": behind a proxy, events may not arrive";
  }

  void setHandler(Handler handler) override {
    BusReceiver::shared().setHandler(std::move(handler));
  }

  void awaitName(std::chrono::steady_clock::time_point deadline) override {
    BusReceiver::shared().awaitName(deadline);
  }

  void removeHandler() override { BusReceiver::shared().removeHandler(); }

  void watchStanding(const std::function<void()>& onLost) override {
    BusReceiver::shared().watchStanding(onLost);
  }
  [[nodiscard]] Standing standing() override { return BusReceiver::shared().standing(); }
  void whenHandled(std::function<void()> done) override {
    BusReceiver::shared().whenHandled(std::move(done));
  }

  void setDiagnoser(const std::function<std::string()>& diagnoser) override {
    BusReceiver::shared().setDiagnoser(diagnoser);
  }

 private:
  static OSErr refusal(const RPCTarget& target, const RPCEvent& event) {
    if (!isSendable(event)) return paramErr;
    if (target.bundleID.empty()) return procNotFound;
    return isSendable(target.bundleID) ? noErr : paramErr;
  }

  void logObstacleOnce() {
    if (!BusSender::shared().foreignProcess() || isObstacleLogged_.exchange(true)) return;
    const auto obstacle = knownObstacle();
    if (!obstacle) return;
    record(StepKind::busObstacle, *obstacle);
    log(LogLevel::error, LogCategory::bus, "%@", {privateArgument(*obstacle)});
  }

  std::atomic<bool> isObstacleLogged_{false};
};

}  // namespace

RPCTransport& nativeTransport() {
  static NeverDestroyed transport([] { return BusTransport(); });
  return *transport;
}

}  // namespace qbdkr
