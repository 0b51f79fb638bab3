#pragma once

#include <ClientComm/QBHPUpgradeByHelper.h>

#include "Service.h"

namespace acme {

// The conversation about an upgrade: a host asks for one, is asked whether it is ready, and answers
// "1" or "0" when it knows. To a question that comes before the host has answered the last one, the
// framework answers "ignore", with empty texts for the product.
class UpgradeService : public Service {
 public:
  UpgradeService(State& state, const Transcript& transcript);

  qbdkr::OSErr productUpgrade(qbdkr::Text productID, qbdkr::Text versionID);
  qbdkr::OSErr productReadyToUpgrade(qbdkr::Text productID, qbdkr::Text versionID,
                                     qbdkr::Text ready);

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override;
};

}  // namespace acme
