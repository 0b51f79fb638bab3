#include "CustomerService.h"

#include <array>

namespace acme {

using qbdkr::method;
using qbdkr::OSErr;
using qbdkr::Text;
using Request = qbdkr::QBHPCustomerServiceByHelepr;

CustomerService::CustomerService(State& state, Uploads& uploads, const Transcript& transcript)
    : Service(Request::kClassName, state, transcript), uploads_(uploads) {}

OSErr CustomerService::customerService(Text productID, Text versionID, Text email,
                                       Text attachment) {
  const std::string product(productID.value_or(""));
  if (!attachment.value_or("").empty()) {
    uploads_.add({0, "attachment", product, std::string(versionID.value_or("")),
                  std::string(email.value_or("")), std::string(*attachment), "", ""});
  }
  // With a server, the message would be its answer.
  state().addMessage(product, "We have your request and answer to " + shown(email) + ".");
  return qbdkr::noErr;
}

OSErr CustomerService::checkForHeleprMessage(Text productID, Text /*versionID*/) {
  const auto messages = state().takeMessages(productID.value_or(""));
  if (messages.empty()) note("has no message for product " + shown(productID));
  for (const std::string& message : messages) note("shows a message: " + message);
  return qbdkr::noErr;
}

std::span<const qbdkr::Method> CustomerService::methods() const {
  using Self = CustomerService;
  static constexpr std::array table{
      method<&Self::customerService>(Request::kCustomerService),
      method<&Self::checkForHeleprMessage>(Request::kCheckForHeleprMessage),
  };
  return table;
}

}  // namespace acme
