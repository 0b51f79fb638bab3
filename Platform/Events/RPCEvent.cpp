#include "Platform/Events/RPCEvent.h"

#include <algorithm>

#include "Platform/Text/Text.h"

namespace qbdkr {

RPCTarget RPCTarget::withBundleID(std::string_view bundleID) {
  const std::size_t count = std::min(bundleID.size(), utf16Length(bundleID));
  return {std::string(bundleID.substr(0, count)), std::nullopt};
}

bool isSendable(std::string_view text) {
  return isPlainASCII(text) || (text.find('\0') == std::string_view::npos && isValidUTF8(text));
}

bool EventAllowance::takeName(std::string_view name) {
  if (name.size() > longestEventName || !isSendable(name)) return false;
  names_ += name.size();
  return true;
}

bool EventAllowance::takeArgument(std::string_view text) {
  // For its length and its end on the bus, which takes no longer list.
  constexpr std::size_t perText = 8;
  if (texts_ == 0 || text.size() + perText > content_ || !isSendable(text)) {
    texts_ = 0;
    return false;
  }
  --texts_;
  content_ -= text.size() + perText;
  return true;
}

bool isSendable(const RPCEvent& event) {
  EventAllowance allowance;
  return (!event.className || allowance.takeName(*event.className)) &&
         (!event.methodName || allowance.takeName(*event.methodName)) &&
         std::ranges::all_of(event.arguments,
                             [&](const std::string& text) { return allowance.takeArgument(text); });
}

bool isSendableResult(std::string_view text) {
  return text.size() <= mostEventContent && isSendable(text);
}

}  // namespace qbdkr
