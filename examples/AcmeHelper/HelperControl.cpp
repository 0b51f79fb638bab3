#include "HelperControl.h"

#include <array>

#include "ClientComm/QBHPAppleEventProcesser.h"
#include "ClientComm/QBHPAppleEventSender.h"
#include "Platform/RunLoop.h"

namespace acme {

using qbdkr::method;
using qbdkr::OSErr;
using qbdkr::QBHPAppleEventProcesser;
using qbdkr::QBHPAppleEventSender;
using qbdkr::selector;
using qbdkr::Text;

namespace {

constexpr std::string_view ownName = "AcmeHelper";

}  // namespace

HelperControl::HelperControl(const Transcript& transcript) : transcript_(transcript) {
  QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName);
}

HelperControl::~HelperControl() {
  QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(kClassName);
}

OSErr HelperControl::start(Text productID, Text prodeuctVersion) {
  note("start request", productID, prodeuctVersion);
  reportServerOpen(sender_);
  return qbdkr::noErr;
}

OSErr HelperControl::stop(Text productID, Text prodeuctVersion) {
  note("stop request", productID, prodeuctVersion);
  return qbdkr::noErr;
}

OSErr HelperControl::show(Text productID, Text prodeuctVersion) {
  note("show request", productID, prodeuctVersion);
  return qbdkr::noErr;
}

OSErr HelperControl::hide(Text productID, Text prodeuctVersion) {
  note("hide request", productID, prodeuctVersion);
  return qbdkr::noErr;
}

OSErr HelperControl::isAlive(Text productID, Text prodeuctVersion) {
  note("liveness request", productID, prodeuctVersion);
  return qbdkr::noErr;
}

OSErr HelperControl::exitHelper(Text productID, Text productVersion) {
  note("exit request", productID, productVersion);
  qbdkr::RunLoop::main().stop();
  return qbdkr::noErr;
}

void HelperControl::reportExit() {
  const std::array<std::string_view, 1> arguments{ownName};
  for (const std::string& host : bundleIDSet()) {
    QBHPAppleEventSender::share().sendEvnet(host, className(), "helperExitNotify:", arguments);
  }
}

void HelperControl::setBundleID(Text bundleID) {
  QBHPAppEventBase::setBundleID(bundleID);
  sender_ = bundleID.value_or("");
}

// The arguments of the report: who reports, whether the server side is open, an error code and an
// error message.
void HelperControl::reportServerOpen(const std::string& host) {
  const std::array<std::string_view, 4> arguments{ownName, "1", "0", ""};
  QBHPAppleEventSender::share().sendEvnet(host, className(),
                                          "checkServerOpenCallBack::::", arguments);
}

void HelperControl::note(std::string_view request, Text productID, Text version) const {
  transcript_.write(std::string(request) + " received from " + sender_ + ": product " +
                    shown(productID) + ", version " + shown(version));
}

std::span<const qbdkr::Method> HelperControl::methods() const {
  using Self = HelperControl;
  static constexpr std::array table{
      method<&Self::start>(selector<&Self::start>("start:prodeuctVersion:")),
      method<&Self::stop>(selector<&Self::stop>("stop:prodeuctVersion:")),
      method<&Self::show>(selector<&Self::show>("show:prodeuctVersion:")),
      method<&Self::hide>(selector<&Self::hide>("hide:prodeuctVersion:")),
      method<&Self::isAlive>(selector<&Self::isAlive>("isAlive:prodeuctVersion:")),
      method<&Self::exitHelper>(selector<&Self::exitHelper>("exitHelper:productVersion:")),
  };
  return table;
}

}  // namespace acme
