#pragma once

#include <cstddef>
#include <string_view>

#include "Platform/AppleEvent.h"

namespace qbdkr {

// What every transport carries, and nothing else: an RPC event. Its direct object is the name of a
// class, the name of a method and a list of texts. The bounds hold for what is sent and for what
// comes in.
inline constexpr std::size_t longestEventName = std::size_t{1} << 20U;   // bytes
inline constexpr std::size_t mostEventTexts = std::size_t{1} << 18U;     // of the list
inline constexpr std::size_t mostEventContent = std::size_t{64} << 20U;  // bytes, 8 for each text

// The bundle identifier of the application that sent an event: text, or null for a process that is
// no application. For a transport that decided it when it first heard the sender; it does not
// travel.
inline constexpr FourCharCode keySenderBundleIDAttr = fourCharCode("sbid");

// Whether a text may go from one process to another: UTF-8 without a NUL.
[[nodiscard]] bool isSendable(std::string_view text);

// Whether a direct object that came in can be handed on: what stands for the names and the list is
// within the bounds, and each text in it is one that can be sent. Its form is the dispatcher's to
// judge.
[[nodiscard]] bool isWithinBounds(const AppleEventDescriptor& directObject);

// Whether an event can be sent: of this class and ID, with such an object, and addressed by bundle
// identifier.
[[nodiscard]] bool isRPCEvent(const AppleEvent& event);
[[nodiscard]] bool isRPCEvent(FourCharCode eventClass, FourCharCode eventID);

// Counts what the texts of one event take up.
class EventAllowance {
 public:
  // False from the first text on that is too much.
  [[nodiscard]] bool take(std::string_view text) {
    // Its length and its end, on the bus, which takes no longer list.
    constexpr std::size_t perText = 8;
    if (texts_ == 0 || text.size() + perText > content_) {
      texts_ = 0;
      return false;
    }
    --texts_;
    content_ -= text.size() + perText;
    return true;
  }

 private:
  std::size_t texts_ = mostEventTexts;
  std::size_t content_ = mostEventContent;
};

}  // namespace qbdkr
