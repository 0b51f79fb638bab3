#pragma once

#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Asks the helper agent to open a customer-service request, and to look for messages for the
// product. Both calls post their request and return at once, with a status of QBHPAppleEventSender.
// Any thread.
class QBDKR_EXPORT QBHPCustomerServiceByHelepr : public QBHPAppEventBase {
 public:
  // The class name in RPC events.
  static constexpr std::string_view kClassName = "QBHPCustomerServiceByHelepr";

  // Returns the service of this process, made on first use, never destroyed. Any thread.
  static QBHPCustomerServiceByHelepr& share();

  // Opens a request. The attachment is the path of a file, passed on unchecked.
  OSErr customerService(Text productID, Text versionID, Text email, Text attachment);
  static constexpr auto kCustomerService = selector<&QBHPCustomerServiceByHelepr::customerService>(
      "customerService:versionID:email:attachment:");

  // Lets the helper agent show new messages.
  OSErr checkForHeleprMessage(Text productID, Text versionID);
  static constexpr auto kCheckForHeleprMessage =
      selector<&QBHPCustomerServiceByHelepr::checkForHeleprMessage>(
          "checkForHeleprMessage:versionID:");

  [[nodiscard]] std::string_view className() const override { return kClassName; }
};

}  // namespace qbdkr
