#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qbdkr {

// A message between a host and its helper agent: the name of a service class, the full name of one
// of its methods, and texts for it, all in UTF-8. A received event may lack a name; an absent name
// is sent as an empty one.
struct RPCEvent {
  std::optional<std::string> className;
  std::optional<std::string> methodName;
  std::vector<std::string> arguments;

  bool operator==(const RPCEvent&) const = default;
};

// The receiver of an event.
struct RPCTarget {
  // Returns the application with this identifier. Takes as many bytes of its UTF-8 as the
  // identifier has UTF-16 units, on purpose: peers have always been addressed so. Identifiers are
  // ASCII in practice, where both are the same.
  [[nodiscard]] static RPCTarget withBundleID(std::string_view bundleID);

  std::string bundleID;  // may end within a character
  // The directory in which the target's executable must lie; absent if it may lie anywhere. It is
  // not sent.
  std::optional<std::string> directory;

  bool operator==(const RPCTarget&) const = default;
};

// The bounds of an event, sent or received.
inline constexpr std::size_t longestEventName = std::size_t{1} << 20U;   // bytes
inline constexpr std::size_t mostEventTexts = std::size_t{1} << 18U;     // arguments
inline constexpr std::size_t mostEventContent = std::size_t{64} << 20U;  // bytes, plus 8 per text

// Tells whether a text can be sent to another process: UTF-8 without a NUL.
[[nodiscard]] bool isSendable(std::string_view text);

// Checks the texts of one event as they are read: each can be sent, and together they are within
// the bounds.
class EventAllowance {
 public:
  [[nodiscard]] bool takeName(std::string_view name);
  // False for the first text that is refused, and for all texts after it.
  [[nodiscard]] bool takeArgument(std::string_view text);

  // Returns the bytes of the names and arguments so far, with 8 for each argument.
  [[nodiscard]] std::size_t used() const { return names_ + mostEventContent - content_; }

 private:
  std::size_t names_ = 0;
  std::size_t texts_ = mostEventTexts;
  std::size_t content_ = mostEventContent;
};

// Tells whether an event can be sent: an EventAllowance takes its texts.
[[nodiscard]] bool isSendable(const RPCEvent& event);

// Tells whether a text can be the result of a method: sendable, and 64 MiB at most.
[[nodiscard]] bool isSendableResult(std::string_view text);

}  // namespace qbdkr
