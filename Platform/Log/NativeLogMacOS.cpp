#include "Platform/Log/NativeLog.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Text/Text.h"

// Foundation declares it in Objective-C, for an NSString, which a CFString is. C++ can only be told
// so here.
extern "C" void NSLog(CFStringRef format, ...);

namespace qbdkr {

void writeLogLine(const std::string& line) {
  // A line that was cut, or is no UTF-8 to begin with, is still worth its characters.
  const auto text = stringFromUnits(utf16FromUTF8(line));
  if (text) NSLog(CFSTR("%@"), text.get());
}

}  // namespace qbdkr
