#pragma once

#include "ClientComm/QBHPAppEventBase.h"
#include "Transcript.h"

namespace acme {

// Answers what only the helper agent knows.
class GetData : public qbdkr::QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "QBHPGetDataByHelper";

  explicit GetData(const Transcript& transcript);
  ~GetData() override;

  // The identifier of this installation: made once, kept in the helper agent's user defaults.
  qbdkr::String clientIDFormHelper();

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override;

 private:
  const Transcript& transcript_;
};

}  // namespace acme
