// The helper agent: a class for each class of requests, a function for each request, and a row in
// methods() by which it is called.

#include <array>
#include <chrono>
#include <csignal>
#include <initializer_list>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/HelperLifetime.h>
#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPUploadByHelper.h>
#include <ClientComm/RunLoop.h>
#include <ClientComm/UserDefaults.h>

namespace {

using qbdkr::method;
using qbdkr::String;
using qbdkr::Text;
using Control = qbdkr::QBHPHelperControl;
using Data = qbdkr::QBHPGetDataByHelper;
using Upload = qbdkr::QBHPUploadByHelper;

// Texts that survive a kill.

std::string kept(std::string_view key) {
  const auto value = qbdkr::UserDefaults::standard().object(key);
  return value ? value->text().value_or("") : "";
}

void keep(std::string_view key, std::string_view text) {
  qbdkr::UserDefaults::standard().setObject(key, text);
  qbdkr::UserDefaults::standard().synchronize();
}

// Registers an object under the name of the class whose requests it serves.
class Service : public qbdkr::QBHPAppEventBase {
 public:
  explicit Service(std::string_view name) : name_(name) {
    qbdkr::QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, name_);
  }
  ~Service() override {
    qbdkr::QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(name_);
  }
  std::string_view className() const override { return name_; }

 private:
  std::string_view name_;
};

class HelperControl : public Service {
 public:
  HelperControl() : Service(Control::kClassName) {}

  // The report's texts: a name, whether the server side is open, an error code ("0": none), a
  // message.
  void start(Text /*productID*/, Text /*prodeuctVersion*/) {
    report(Control::kCheckServerOpenCallBack, {ownName(), "1", "0", ""});
  }
  void exitHelper(Text /*productID*/, Text /*productVersion*/) { qbdkr::RunLoop::main().stop(); }

  void reportExit() { report(Control::kHelperExitNotify, {ownName()}); }

 protected:
  std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{method<&HelperControl::start>(Control::kStart),
                                      method<&HelperControl::exitHelper>(Control::kExitHelper)};
    return table;
  }

 private:
  static std::string_view ownName() {
    static const std::string name =
        qbdkr::Bundle::main().infoString(qbdkr::kCFBundleNameKey).value_or("");
    return name;
  }
  // Sends an event to all hosts so far, and does not wait for them.
  void report(qbdkr::Selector selector, const std::vector<std::string_view>& texts) {
    for (const std::string& host : bundleIDSet()) {
      qbdkr::QBHPAppleEventSender::share().sendEvnet(host, className(), selector.text(), texts);
    }
  }
};

class GetData : public Service {
 public:
  GetData() : Service(Data::kClassName), wasStartedBefore_(!kept(clientKey).empty()) {
    if (!wasStartedBefore_) keep(clientKey, newIdentifier());
  }

  String clientIDFormHelper() { return kept(clientKey); }
  String isNotFirstStart() { return wasStartedBefore_ ? "1" : "0"; }

 protected:
  std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{
        method<&GetData::clientIDFormHelper>(Data::kClientIDFormHelper),
        method<&GetData::isNotFirstStart>(Data::kIsNotFirstStart)};
    return table;
  }

 private:
  static constexpr std::string_view clientKey = "clientID";

  static std::string newIdentifier() {
    std::random_device random;
    std::string text;
    for (int i = 0; i < 32; ++i) text += "0123456789abcdef"[random() % 16];
    return text;
  }

  bool wasStartedBefore_;
};

class UploadByHelper : public Service {
 public:
  UploadByHelper() : Service(Upload::kClassName) {}

  void setProductCollectStatus(Text /*productID*/, Text /*version*/, Text status) {
    keep(collectKey, status == "1" ? "1" : "0");
  }
  String productCollectStatus(Text /*productID*/, Text /*version*/) {
    return kept(collectKey) == "1" ? "1" : "0";
  }
  // The URL, width and height of a page.
  String suiteInfo(Text productID, Text /*version*/) {
    return "https://acme.example/offer/" + std::string(productID.value_or("")) + "###300###200";
  }
  String netErrorPagePath(Text /*productID*/, Text /*version*/) {
    return qbdkr::Bundle::main().pathForResource("NetworkError", "html");
  }

 protected:
  std::span<const qbdkr::Method> methods() const override {
    static constexpr std::array table{
        method<&UploadByHelper::setProductCollectStatus>(Upload::kSetProductCollectStatus),
        method<&UploadByHelper::productCollectStatus>(Upload::kProductCollectStatus),
        method<&UploadByHelper::suiteInfo>(Upload::kRegSuiteInfo),
        method<&UploadByHelper::suiteInfo>(Upload::kUnRegSuiteInfo),
        method<&UploadByHelper::netErrorPagePath>(Upload::kNetErrorPagePath)};
    return table;
  }

 private:
  static constexpr std::string_view collectKey = "productCollectStatus";
};

void stop(int /*signal*/) { qbdkr::RunLoop::main().stop(); }

}  // namespace

int main() {
  qbdkr::RunLoop& loop = qbdkr::RunLoop::main();
  std::signal(SIGTERM, stop);
  HelperControl control;
  GetData data;
  UploadByHelper upload;
  qbdkr::endWhenIdle(std::chrono::minutes(10));  // a host starts it again
  qbdkr::endWithBus(std::chrono::seconds(10));
  loop.run();
  const auto inTwoSeconds = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  qbdkr::serveWhatHasCome(inTwoSeconds);
  control.reportExit();
  qbdkr::QBHPAppleEventSender::share().flush(inTwoSeconds);
}
