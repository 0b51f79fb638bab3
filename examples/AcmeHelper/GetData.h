#pragma once

#include <ClientComm/QBHPGetDataByHelper.h>

#include "Service.h"

namespace acme {

// Answers what only the helper agent knows.
class GetData : public Service {
 public:
  GetData(State& state, const Transcript& transcript);

  // The identifier of this installation: made once, kept in the helper agent's user defaults.
  qbdkr::String clientIDFormHelper();
  // "1", or "0" while the first helper agent runs that was ever started here.
  qbdkr::String isNotFirstStart();

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override;
};

}  // namespace acme
