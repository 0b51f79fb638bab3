#pragma once

#include <span>
#include <string>
#include <vector>

#include "tools/qbhp/HelperTrial.h"

namespace qbdkr::tool {

struct Verdict {
  enum class Result { ok, failed, skipped };
  Result result;
  std::string seen;
};

struct CheckScene {
  HelperTrial& trial;
  std::string bundlePath;
  bool answersErrors = false;  // to a request that is no error
};

struct HelperCheck {
  const char* name = nullptr;
  const char* title = nullptr;
  Verdict (*run)(CheckScene& scene) = nullptr;
  // A check that launches, and perhaps ends, the helper agent itself.
  bool launches = false;
};

// Returns all checks of docs/rpc-events.md, in the order in which they run.
[[nodiscard]] std::span<const HelperCheck> helperChecks();

// Runs a check, and asks afterwards whether the helper agent still answers. Launches it before if
// it does not run.
[[nodiscard]] Verdict runCheck(const HelperCheck& check, CheckScene& scene);

}  // namespace qbdkr::tool
