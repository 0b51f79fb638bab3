#pragma once

#include <map>
#include <string>

#include <ClientComm/QBHPHelperControl.h>

#include "Service.h"

namespace acme {

// The helper agent's side of the helper control: the products that it works for, and its reports to
// their hosts.
class HelperControl : public Service {
 public:
  HelperControl(State& state, const Transcript& transcript);

  // Requests, called by name with the arguments that the host sent.
  qbdkr::OSErr start(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr stop(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr show(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr hide(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr isAlive(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr exitHelper(qbdkr::Text productID, qbdkr::Text productVersion);

  // Tells every host that has sent a request that this helper agent is about to exit.
  void reportExit() const;

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override;

 private:
  void noteProducts() const;

  std::map<std::string, std::string> products_;  // those started: identifier and version
};

}  // namespace acme
