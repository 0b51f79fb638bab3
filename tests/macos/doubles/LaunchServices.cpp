#include "macos/doubles/LaunchServices.h"

#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "macos/doubles/CFObject.h"

namespace {

struct URL : doubles::CFObject {};

}  // namespace

OSStatus LSOpenFromURLSpec(const LSLaunchURLSpec* launch, CFURLRef*) {
  auto& services = doubles::LaunchServices::shared();
  services.launches.push_back(launch->launchFlags);
  return services.launch ? services.launch() : noErr;
}

doubles::LaunchServices& doubles::LaunchServices::shared() {
  static LaunchServices services;
  return services;
}

// Any object will do for a URL.
qbdkr::CFRef<CFURLRef> qbdkr::directoryURL(std::string_view) {
  return CFRef<CFURLRef>(reinterpret_cast<CFURLRef>(static_cast<doubles::CFObject*>(new URL)));
}
