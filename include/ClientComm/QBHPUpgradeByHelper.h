#pragma once

#include <atomic>
#include <span>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/QBHPHelperError.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// The base of a delegate that is asked whether the product is ready to be upgraded. To answer, a
// delegate implements the interface below. Remove and destroy it on the main thread, or while no
// report can come. It may do so itself in a call, and it may run the main run loop there, as for a
// modal dialog; a further question then gets the answer "ignore". One that is destroyed while it is
// set takes itself off, which the record tells.
class QBDKR_EXPORT QBHPProductUpgradeCallBackDelegate {
 public:
  virtual ~QBHPProductUpgradeCallBackDelegate();

  // Tells whether it takes the question, as QBHPHelperControlCallBackDelegate::respondsTo() does.
  [[nodiscard]] virtual bool respondsTo(Selector report) const;
};

// Is asked whether the product is ready to be upgraded.
class QBDKR_EXPORT QBHPProductWillUpgradeDelegate
    : public virtual QBHPProductUpgradeCallBackDelegate {
 public:
  // Called when the helper agent asks; answer with productReadyToUpgrade(), at once or later. The
  // error is null if the question has no error code, and lives as long as the call. Runs on the
  // main thread, under the dispatcher's lock.
  virtual void productWillUpgrade(const Error* error) = 0;
  static constexpr auto kProductWillUpgrade =
      selector<&QBHPProductWillUpgradeDelegate::productWillUpgrade>("productWillUpgrade:");
};

// Exchanges messages about an upgrade of the product. The helper agent asks whether it is ready. A
// question that arrives before the previous one is answered gets the answer "ignore".
//
// Requests post and return at once, with a status of QBHPAppleEventSender. Any thread.
class QBDKR_EXPORT QBHPUpgradeByHelper : public QBHPAppEventBase {
 public:
  // The class name in RPC events.
  static constexpr std::string_view kClassName = "QBHPUpgradeByHelper";

  // Returns the service of this process, as QBHPHelperControl::share() does.
  static QBHPUpgradeByHelper& share();

  // Registers the new object for reports, in the place of an earlier one. Destroy it on the main
  // thread, or while no report can come.
  QBHPUpgradeByHelper();
  ~QBHPUpgradeByHelper() override;

  // Sets and returns the delegate, which is not owned; null removes it. Any thread.
  void setProductUpgradeDelegate(QBHPProductUpgradeCallBackDelegate* delegate);
  [[nodiscard]] QBHPProductUpgradeCallBackDelegate* productUpgradeDelegate() const;

  // False while a question that the delegate got is unanswered. Any thread.
  [[nodiscard]] bool isUpgradeQueryResopned() const { return isUpgradeQueryResopned_; }

  // Answers the question with "1", "0" or "ignore". It then counts as answered, even if the answer
  // cannot be sent.
  OSErr productReadyToUpgrade(Text productID, Text versionID, Text ready);
  static constexpr auto kProductReadyToUpgrade =
      selector<&QBHPUpgradeByHelper::productReadyToUpgrade>(
          "productReadyToUpgrade:versionID:ready:");

  // Starts an upgrade.
  OSErr productUpgrade(Text productID, Text versionID);
  static constexpr auto kProductUpgrade =
      selector<&QBHPUpgradeByHelper::productUpgrade>("productUpgrade:versionID:");

  // Receives the question, which calls this by name. The first two texts are only logged; code and
  // message make an error as in QBHPHelperControl.
  OSErr productUpgradeCallBack(Text first, Text second, Text errorCode, Text errorMessage);
  static constexpr auto kProductUpgradeCallBack =
      selector<&QBHPUpgradeByHelper::productUpgradeCallBack>("productUpgradeCallBack::::");

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override;

 private:
  friend class QBHPProductUpgradeCallBackDelegate;
  // Takes a delegate that is destroyed off, and records it.
  void forget(const QBHPProductUpgradeCallBackDelegate& delegate) noexcept;

  OSErr answer(Text productID, Text versionID, Text ready);

  std::atomic<bool> isUpgradeQueryResopned_{true};
  std::atomic<QBHPProductUpgradeCallBackDelegate*> delegate_{nullptr};
};

}  // namespace qbdkr
