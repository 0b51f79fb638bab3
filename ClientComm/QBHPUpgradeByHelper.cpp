#include <array>
#include <atomic>

#include <ClientComm/LogHandler.h>
#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPUpgradeByHelper.h>

#include "ClientComm/HelperRequest.h"
#include "ClientComm/RequestRecord.h"
#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {
namespace {

// The object whose delegate was set last. A delegate that is destroyed takes itself off there.
constinit std::atomic<QBHPUpgradeByHelper*> serviceWithDelegate{nullptr};

}  // namespace

QBHPProductUpgradeCallBackDelegate::~QBHPProductUpgradeCallBackDelegate() {
  QBHPUpgradeByHelper* const service = serviceWithDelegate;
  if (service != nullptr) service->forget(*this);
}

bool QBHPProductUpgradeCallBackDelegate::respondsTo(Selector /*report*/) const { return true; }

QBHPUpgradeByHelper& QBHPUpgradeByHelper::share() {
  static NeverDestroyed service([] { return QBHPUpgradeByHelper(); });
  return *service;
}

QBHPUpgradeByHelper::QBHPUpgradeByHelper() {
  QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName);
}

QBHPUpgradeByHelper::~QBHPUpgradeByHelper() {
  QBHPUpgradeByHelper* self = this;
  serviceWithDelegate.compare_exchange_strong(self, nullptr);
  QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(kClassName);
}

void QBHPUpgradeByHelper::forget(const QBHPProductUpgradeCallBackDelegate& delegate) noexcept {
  QBHPProductUpgradeCallBackDelegate* set = delegate_;
  if (set == &delegate && delegate_.compare_exchange_strong(set, nullptr)) {
    recordDelegateDestroyed(*this);
  }
}

void QBHPUpgradeByHelper::setProductUpgradeDelegate(QBHPProductUpgradeCallBackDelegate* delegate) {
  serviceWithDelegate = this;
  delegate_ = delegate;
}

QBHPProductUpgradeCallBackDelegate* QBHPUpgradeByHelper::productUpgradeDelegate() const {
  return delegate_;
}

OSErr QBHPUpgradeByHelper::productReadyToUpgrade(Text productID, Text versionID, Text ready) {
  isUpgradeQueryResopned_ = true;
  return answer(productID, versionID, ready);
}

OSErr QBHPUpgradeByHelper::answer(Text productID, Text versionID, Text ready) {
  return postRequest(*this, kProductReadyToUpgrade, {productID, versionID, ready}, "%@ %@ %@ %@");
}

OSErr QBHPUpgradeByHelper::productUpgrade(Text productID, Text versionID) {
  return postRequest(*this, kProductUpgrade, {productID, versionID}, "%@ %@ %@ ");
}

OSErr QBHPUpgradeByHelper::productUpgradeCallBack(Text first, Text second, Text errorCode,
                                                  Text errorMessage) {
  log(LogCategory::report, "%@ %@ %@ %@ %@",
      {publicArgument(kProductUpgradeCallBack.text()), privateArgument(first),
       privateArgument(second), privateArgument(errorCode), privateArgument(errorMessage)});
  if (!isUpgradeQueryResopned_) {
    log(LogCategory::report, "last query not responsed yet!");
    // The earlier question stays open: the host may be answering it on another thread right now.
    return answer("", "", "ignore");
  }
  auto* delegate = dynamic_cast<QBHPProductWillUpgradeDelegate*>(productUpgradeDelegate());
  // Without such a delegate no answer will come, so the question does not count as open.
  if (delegate == nullptr ||
      !delegate->respondsTo(QBHPProductWillUpgradeDelegate::kProductWillUpgrade)) {
    recordNotTaken(*this, kProductUpgradeCallBack);
    return noErr;
  }
  const auto error = QBHPHelperError::reported(errorCode, errorMessage);
  isUpgradeQueryResopned_ = false;
  delegate->productWillUpgrade(error ? &*error : nullptr);
  return noErr;
}

std::span<const Method> QBHPUpgradeByHelper::methods() const {
  static constexpr std::array table{
      method<&QBHPUpgradeByHelper::productUpgradeCallBack>(kProductUpgradeCallBack)};
  return table;
}

}  // namespace qbdkr
