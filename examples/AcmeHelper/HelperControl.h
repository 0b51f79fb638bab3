#pragma once

#include <string>

#include "ClientComm/QBHPAppEventBase.h"
#include "Transcript.h"

namespace acme {

// The helper agent's side of the helper control: what hosts ask, and what is reported back to them.
class HelperControl : public qbdkr::QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "QBHPHelperControl";

  explicit HelperControl(const Transcript& transcript);
  ~HelperControl() override;

  // Requests, called by name with what the host sent.
  qbdkr::OSErr start(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr stop(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr show(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr hide(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr isAlive(qbdkr::Text productID, qbdkr::Text prodeuctVersion);
  qbdkr::OSErr exitHelper(qbdkr::Text productID, qbdkr::Text productVersion);

  // Tells every host that has sent something that this helper agent is about to exit.
  void reportExit();

  // The sender of the request that comes next.
  void setBundleID(qbdkr::Text bundleID) override;

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override;

 private:
  void reportServerOpen(const std::string& host);
  void note(std::string_view request, qbdkr::Text productID, qbdkr::Text version) const;

  const Transcript& transcript_;
  std::string sender_;
};

}  // namespace acme
