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

// Is asked whether the product is ready to be upgraded. A delegate that cannot answer derives from
// this class alone; one that can implements the interface below. It is taken away and destroyed on
// the main thread, or while no report can come.
class QBDKR_EXPORT QBHPProductUpgradeCallBackDelegate {
 public:
  virtual ~QBHPProductUpgradeCallBackDelegate();
};

class QBDKR_EXPORT QBHPProductWillUpgradeDelegate
    : public virtual QBHPProductUpgradeCallBackDelegate {
 public:
  // The helper agent asks; the answer is productReadyToUpgrade(), then or later. The error is null
  // when there is none, and lives as long as the call. Called on the main thread, under the
  // dispatcher's lock.
  virtual void productWillUpgrade(const Error* error) = 0;
};

// The conversation about an upgrade of the product. The helper agent asks whether it is ready; a
// question that comes while an earlier one is not answered is answered with "ignore".
//
// Requests post and return at once: 0, or what QBHPAppleEventSender lists. Any thread.
class QBDKR_EXPORT QBHPUpgradeByHelper : public QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "QBHPUpgradeByHelper";

  static QBHPUpgradeByHelper& share();

  // Registers the new object for reports, in the place of an earlier one. An object is destroyed on
  // the main thread, or while no report can come.
  QBHPUpgradeByHelper();
  ~QBHPUpgradeByHelper() override;

  // The delegate is not owned; null for none. Any thread.
  void setProductUpgradeDelegate(QBHPProductUpgradeCallBackDelegate* delegate);
  [[nodiscard]] QBHPProductUpgradeCallBackDelegate* productUpgradeDelegate() const;

  // Whether the last question was answered, or none was asked yet.
  [[nodiscard]] bool isUpgradeQueryResopned() const { return isUpgradeQueryResopned_; }

  // Answers the question, whether or not the answer can be sent: "1", "0" or "ignore".
  OSErr productReadyToUpgrade(Text productID, Text versionID, Text ready);
  static constexpr auto kProductReadyToUpgrade =
      selector<&QBHPUpgradeByHelper::productReadyToUpgrade>(
          "productReadyToUpgrade:versionID:ready:");

  // Starts an upgrade.
  OSErr productUpgrade(Text productID, Text versionID);
  static constexpr auto kProductUpgrade =
      selector<&QBHPUpgradeByHelper::productUpgrade>("productUpgrade:versionID:");

  // The question, called by name. The first two texts are the helper agent's affair.
  OSErr productUpgradeCallBack(Text first, Text second, Text errorCode, Text errorMessage);
  static constexpr auto kProductUpgradeCallBack =
      selector<&QBHPUpgradeByHelper::productUpgradeCallBack>("productUpgradeCallBack::::");

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override;

 private:
  OSErr answer(Text productID, Text versionID, Text ready);

  std::atomic<bool> isUpgradeQueryResopned_{true};
  std::atomic<QBHPProductUpgradeCallBackDelegate*> delegate_{nullptr};
};

}  // namespace qbdkr
