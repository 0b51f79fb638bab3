#include "UpgradeService.h"

#include <array>

namespace acme {

using qbdkr::method;
using qbdkr::OSErr;
using qbdkr::Text;
using Request = qbdkr::QBHPUpgradeByHelper;

UpgradeService::UpgradeService(State& state, const Transcript& transcript)
    : Service(Request::kClassName, state, transcript) {}

// The report's arguments: the product, its version, an error code and an error message.
OSErr UpgradeService::productUpgrade(Text productID, Text versionID) {
  report(sender(), Request::kProductUpgradeCallBack,
         {productID.value_or(""), versionID.value_or(""), "0", ""});
  return qbdkr::noErr;
}

OSErr UpgradeService::productReadyToUpgrade(Text /*productID*/, Text /*versionID*/, Text ready) {
  if (ready == "1") {
    note("upgrades the product of " + sender() + " now");
  } else if (ready == "ignore") {
    note("waits for the answer to an earlier question to " + sender());
  } else {
    note("upgrades the product of " + sender() + " another time");
  }
  return qbdkr::noErr;
}

std::span<const qbdkr::Method> UpgradeService::methods() const {
  using Self = UpgradeService;
  static constexpr std::array table{
      method<&Self::productUpgrade>(Request::kProductUpgrade),
      method<&Self::productReadyToUpgrade>(Request::kProductReadyToUpgrade),
  };
  return table;
}

}  // namespace acme
