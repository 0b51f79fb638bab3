#include "Platform/Base/StatusMeaning.h"

namespace qbdkr {

const char* meaningOf(OSErr status) {
  switch (status) {
    case noErr:
      return "success";
    case paramErr:
      return "a text is not valid UTF-8, the identifier is invalid, or the event is too large";
    case userCanceledErr:
      return "cancelled";
    case procNotFound:
      return "the target is not running";
    case connectionInvalid:
      return "no bus, or the target went away";
    case errAEEventNotHandled:
      return "the target takes no RPC events, or answered with an error or too much";
    case errAETimeout:
      return "not answered in time";
    case errAEEventNotPermitted:
      return "the bus or the user refuses, or the target is not the installed copy";
    default:
      return "unknown";
  }
}

}  // namespace qbdkr
