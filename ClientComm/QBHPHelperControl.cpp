#include "ClientComm/QBHPHelperControl.h"

#include <array>
#include <optional>

#include "ClientComm/HelperRequest.h"
#include "ClientComm/QBHPAppleEventProcesser.h"
#include "Platform/Log.h"

namespace qbdkr {
namespace {

void logRequest(Selector method, Text productID, Text version) {
  log("%@ %@ %@ ", {method.text(), productID, version});
}

}  // namespace

QBHPHelperControlCallBackDelegate::~QBHPHelperControlCallBackDelegate() = default;

QBHPHelperControl& QBHPHelperControl::share() {
  static auto& control = *new QBHPHelperControl;
  return control;
}

QBHPHelperControl::QBHPHelperControl() {
  QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName);
}

QBHPHelperControl::~QBHPHelperControl() {
  QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(kClassName);
}

void QBHPHelperControl::setHelperCtrlDelegate(QBHPHelperControlCallBackDelegate* delegate) {
  delegate_ = delegate;
}

QBHPHelperControlCallBackDelegate* QBHPHelperControl::helperCtrlDelegate() const {
  return delegate_;
}

OSErr QBHPHelperControl::start(Text productID, Text prodeuctVersion) {
  log("QBDKRProductClient''QBHPHelperControl");
  logRequest(kStart, productID, prodeuctVersion);
  return postRequest(*this, kStart, {productID, prodeuctVersion});
}

OSErr QBHPHelperControl::stop(Text productID, Text prodeuctVersion) {
  logRequest(kStop, productID, prodeuctVersion);
  return postRequest(*this, kStop, {productID, prodeuctVersion});
}

OSErr QBHPHelperControl::show(Text productID, Text prodeuctVersion) {
  logRequest(kShow, productID, prodeuctVersion);
  return postRequest(*this, kShow, {productID, prodeuctVersion});
}

OSErr QBHPHelperControl::hide(Text productID, Text prodeuctVersion) {
  logRequest(kHide, productID, prodeuctVersion);
  return postRequest(*this, kHide, {productID, prodeuctVersion});
}

OSErr QBHPHelperControl::isAlive(Text productID, Text prodeuctVersion) {
  return postRequest(*this, kIsAlive, {productID, prodeuctVersion});
}

OSErr QBHPHelperControl::exitHelper(Text productID, Text productVersion) {
  return postRequest(*this, kExitHelper, {productID, productVersion});
}

OSErr QBHPHelperControl::helperExitNotify(Text text) {
  log("%@ %@", {kHelperExitNotify.text(), text});
  if (auto* delegate = dynamic_cast<QBHPWillHelperExitDelegate*>(helperCtrlDelegate())) {
    delegate->willHelperExit();
  }
  return noErr;
}

OSErr QBHPHelperControl::checkServerOpenCallBack(Text text, Text open, Text errorCode,
                                                 Text errorMessage) {
  log("%@ %@ %@ %@ %@", {kCheckServerOpenCallBack.text(), text, open, errorCode, errorMessage});
  auto* delegate = dynamic_cast<QBHPDidCheckServerOpenDelegate*>(helperCtrlDelegate());
  if (delegate == nullptr) return noErr;
  std::optional<Error> error;
  if (intValue(errorCode.value_or("")) != 0) {
    error = QBHPHelperError::errorWithCode(errorCode, errorMessage);
  }
  delegate->didCheckServerOpen(boolValue(open.value_or(std::string_view())),
                               error ? &*error : nullptr);
  return noErr;
}

// Reports only: a request that is called from outside would make this process send, or wait, at the
// will of another one.
std::span<const Method> QBHPHelperControl::methods() const {
  static constexpr std::array table{
      method<&QBHPHelperControl::helperExitNotify>(kHelperExitNotify),
      method<&QBHPHelperControl::checkServerOpenCallBack>(kCheckServerOpenCallBack),
  };
  return table;
}

}  // namespace qbdkr
