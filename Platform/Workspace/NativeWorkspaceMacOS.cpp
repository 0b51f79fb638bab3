#include <CoreServices/CoreServices.h>

#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Workspace/NativeWorkspace.h"

namespace qbdkr {

// Without the flag for asynchronous launches the call returns when the application has been
// launched. A helper agent takes no focus from the host, and no place in a menu.
bool openApplication(const Bundle& bundle) {
  const auto url = directoryURL(bundle.bundlePath());
  if (!url) return false;
  LSLaunchURLSpec launch{};
  launch.appURL = url.get();
  launch.launchFlags = kLSLaunchDontAddToRecents | kLSLaunchDontSwitch;
  return LSOpenFromURLSpec(&launch, nullptr) == ::noErr;
}

}  // namespace qbdkr
