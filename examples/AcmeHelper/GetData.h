#pragma once

#include <ClientComm/QBHPGetDataByHelper.h>

#include "Service.h"

namespace acme {

// Answers questions that only the helper agent can answer.
class GetData : public Service {
 public:
  GetData(State& state, const Transcript& transcript);

  // Returns the identifier of this installation: made once, kept in the helper agent's user
  // defaults. Absent if it cannot be kept.
  qbdkr::String clientIDFormHelper();
  // Returns "0" in the first helper agent that was ever started here, else "1".
  qbdkr::String isNotFirstStart();

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override;
};

}  // namespace acme
