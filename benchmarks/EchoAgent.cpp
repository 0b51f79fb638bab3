// The peer of the benchmarks: a helper agent that answers the requests which are measured.

#include <array>
#include <chrono>
#include <string>

#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPUploadByHelper.h>
#include <ClientComm/RunLoop.h>

#include "TimeOnTheWay.h"

namespace {

class Echo : public qbdkr::QBHPAppEventBase {
 public:
  Echo() { qbdkr::QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName); }

  static constexpr std::string_view kClassName = "Echo";
  [[nodiscard]] std::string_view className() const override { return kClassName; }

  // Takes any number of texts, unlike a method of a table, and returns the time that the event was
  // on the way.
  qbdkr::String performSelector(std::string_view /*selector*/,
                                std::span<const qbdkr::Text> objects) override {
    return qbdkr::bench::timeOnTheWay(objects.empty() ? "0" : objects.front().value_or("0"));
  }
};

class Upload : public qbdkr::QBHPAppEventBase {
 public:
  Upload() { qbdkr::QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName); }

  qbdkr::String productCollectStatus(qbdkr::Text /*productID*/, qbdkr::Text /*version*/) {
    return "1";
  }
  qbdkr::OSErr setProductCollectStatus(qbdkr::Text /*productID*/, qbdkr::Text /*version*/,
                                       qbdkr::Text /*status*/) {
    return qbdkr::noErr;
  }

  static constexpr std::string_view kClassName = qbdkr::QBHPUploadByHelper::kClassName;
  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override {
    using Service = qbdkr::QBHPUploadByHelper;
    static constexpr std::array table{
        qbdkr::method<&Upload::productCollectStatus>(Service::kProductCollectStatus),
        qbdkr::method<&Upload::setProductCollectStatus>(Service::kSetProductCollectStatus)};
    return table;
  }
};

}  // namespace

int main() {
  Echo echo;
  Upload upload;
  qbdkr::RunLoop::main().run();
}
