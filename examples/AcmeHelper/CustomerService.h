#pragma once

#include <ClientComm/QBHPCustomerServiceByHelepr.h>

#include "Service.h"
#include "Uploads.h"

namespace acme {

// Takes requests to the customer service, and shows the messages that come back.
class CustomerService : public Service {
 public:
  CustomerService(State& state, Uploads& uploads, const Transcript& transcript);

  qbdkr::OSErr customerService(qbdkr::Text productID, qbdkr::Text versionID, qbdkr::Text email,
                               qbdkr::Text attachment);
  qbdkr::OSErr checkForHeleprMessage(qbdkr::Text productID, qbdkr::Text versionID);

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override;

 private:
  Uploads& uploads_;
};

}  // namespace acme
