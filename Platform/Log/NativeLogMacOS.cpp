#include "Platform/Log/NativeLog.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Text/Text.h"

// Foundation declares NSLog() in Objective-C, for an NSString. A CFString is one, but C++ needs a
// declaration of its own.
extern "C" void NSLog(CFStringRef format, ...);

namespace qbdkr {

void writeLogLine(const std::string& line) {
  const auto text = stringFromUnits(utf16FromUTF8(line));
  if (text) NSLog(CFSTR("%@"), text.get());
}

}  // namespace qbdkr
