#include <array>
#include <atomic>

#include <ClientComm/Bundle.h>
#include <ClientComm/LogHandler.h>
#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPHelperControl.h>

#include "ClientComm/HelperRequest.h"
#include "ClientComm/InfoKeys.h"
#include "ClientComm/RequestRecord.h"
#include "ClientComm/SwitchFile.h"
#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {
namespace {

constexpr std::string_view logFormat = "%@ %@ %@ ";

// The object whose delegate was set last. A delegate that is destroyed takes itself off there.
constinit std::atomic<QBHPHelperControl*> controlWithDelegate{nullptr};

}  // namespace

QBHPHelperControlCallBackDelegate::~QBHPHelperControlCallBackDelegate() {
  QBHPHelperControl* const control = controlWithDelegate;
  if (control != nullptr) control->forget(*this);
}

bool QBHPHelperControlCallBackDelegate::respondsTo(Selector /*report*/) const { return true; }

QBHPHelperControl& QBHPHelperControl::share() {
  static NeverDestroyed control([] { return QBHPHelperControl(); });
  return *control;
}

QBHPHelperControl::QBHPHelperControl() {
  QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName);
}

QBHPHelperControl::~QBHPHelperControl() {
  QBHPHelperControl* self = this;
  controlWithDelegate.compare_exchange_strong(self, nullptr);
  QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(kClassName);
}

void QBHPHelperControl::forget(const QBHPHelperControlCallBackDelegate& delegate) noexcept {
  QBHPHelperControlCallBackDelegate* set = delegate_;
  if (set == &delegate && delegate_.compare_exchange_strong(set, nullptr)) {
    recordDelegateDestroyed(*this);
  }
}

void QBHPHelperControl::setHelperCtrlDelegate(QBHPHelperControlCallBackDelegate* delegate) {
  controlWithDelegate = this;
  delegate_ = delegate;
}

QBHPHelperControlCallBackDelegate* QBHPHelperControl::helperCtrlDelegate() const {
  return delegate_;
}

OSErr QBHPHelperControl::start(Text productID, Text prodeuctVersion) {
  log(LogCategory::request, "QBDKRProductClient''QBHPHelperControl");
  return postRequest(*this, kStart, {productID, prodeuctVersion}, logFormat);
}

OSErr QBHPHelperControl::stop(Text productID, Text prodeuctVersion) {
  return postRequest(*this, kStop, {productID, prodeuctVersion}, logFormat);
}

OSErr QBHPHelperControl::show(Text productID, Text prodeuctVersion) {
  return postRequest(*this, kShow, {productID, prodeuctVersion}, logFormat);
}

OSErr QBHPHelperControl::hide(Text productID, Text prodeuctVersion) {
  return postRequest(*this, kHide, {productID, prodeuctVersion}, logFormat);
}

OSErr QBHPHelperControl::isAlive(Text productID, Text prodeuctVersion) {
  return postRequest(*this, kIsAlive, {productID, prodeuctVersion});
}

OSErr QBHPHelperControl::exitHelper(Text productID, Text productVersion) {
  return postRequest(*this, kExitHelper, {productID, productVersion});
}

OSErr QBHPHelperControl::helperExitNotify(Text text) {
  log(LogCategory::report, "%@ %@",
      {publicArgument(kHelperExitNotify.text()), privateArgument(text)});
  auto* delegate = dynamic_cast<QBHPWillHelperExitDelegate*>(helperCtrlDelegate());
  if (delegate == nullptr || !delegate->respondsTo(QBHPWillHelperExitDelegate::kWillHelperExit)) {
    recordNotTaken(*this, kHelperExitNotify);
    return noErr;
  }
  delegate->willHelperExit();
  return noErr;
}

OSErr QBHPHelperControl::checkServerOpenCallBack(Text text, Text open, Text errorCode,
                                                 Text errorMessage) {
  log(LogCategory::report, "%@ %@ %@ %@ %@",
      {publicArgument(kCheckServerOpenCallBack.text()), privateArgument(text),
       privateArgument(open), privateArgument(errorCode), privateArgument(errorMessage)});
  auto* delegate = dynamic_cast<QBHPDidCheckServerOpenDelegate*>(helperCtrlDelegate());
  if (delegate == nullptr ||
      !delegate->respondsTo(QBHPDidCheckServerOpenDelegate::kDidCheckServerOpen)) {
    recordNotTaken(*this, kCheckServerOpenCallBack);
    return noErr;
  }
  const auto error = QBHPHelperError::reported(errorCode, errorMessage);
  delegate->didCheckServerOpen(boolValue(open.value_or(std::string_view())),
                               error ? &*error : nullptr);
  return noErr;
}

bool QBHPHelperControl::saveEnableADToPlistFile() {
  const PropertyList* value = Bundle::main().objectForInfoDictionaryKey(infokey::enableAD);
  if (value == nullptr) return true;
  const auto path = firstPropertyList(Bundle::main().bundlePath());
  if (!path) return true;
  return writeSwitch(*path, SwitchForm::propertyList, infokey::enableAD, boolValue(*value),
                     SwitchWrite::always);
}

// Lists only reports. A request called from outside would let another process make this one send,
// or wait.
std::span<const Method> QBHPHelperControl::methods() const {
  static constexpr std::array table{
      method<&QBHPHelperControl::helperExitNotify>(kHelperExitNotify),
      method<&QBHPHelperControl::checkServerOpenCallBack>(kCheckServerOpenCallBack),
  };
  return table;
}

}  // namespace qbdkr
