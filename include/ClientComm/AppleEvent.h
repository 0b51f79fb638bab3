#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ClientComm/Export.h>

namespace qbdkr {

// A four-character code: the ASCII of its big-endian value.
using FourCharCode = std::uint32_t;

// Returns the code of four characters.
consteval FourCharCode fourCharCode(const char (&text)[5]) {
  FourCharCode code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8U | static_cast<unsigned char>(text[i]);
  return code;
}

// The types of descriptors: nothing, a text, a list, and the ways to address an application.
inline constexpr FourCharCode typeNull = fourCharCode("null");
inline constexpr FourCharCode typeUnicodeText = fourCharCode("utxt");
inline constexpr FourCharCode typeAEList = fourCharCode("list");
inline constexpr FourCharCode typeApplicationBundleID = fourCharCode("bund");
inline constexpr FourCharCode typeKernelProcessID = fourCharCode("kpid");
inline constexpr FourCharCode typeProcessSerialNumber = fourCharCode("psn ");

// The class, ID and keywords of an RPC event.
inline constexpr FourCharCode kCoreEventClass = fourCharCode("aevt");
inline constexpr FourCharCode kAECall = fourCharCode("call");
inline constexpr FourCharCode keyDirectObject = fourCharCode("----");
inline constexpr FourCharCode keyAddressAttr = fourCharCode("addr");

// The identifiers of a new event.
inline constexpr std::int16_t kAutoGenerateReturnID = -1;
inline constexpr std::int32_t kAnyTransactionID = 0;

// Whether a send waits for the reply, and how long.
inline constexpr std::int32_t kAENoReply = 1;
inline constexpr std::int32_t kAEWaitReply = 3;
inline constexpr long kAEDefaultTimeout = -1;  // the platform's own limit
inline constexpr long kNoTimeOut = -2;         // wait as long as it takes

// One typed value inside an event: bytes of a four-character type, or a list of such values. A
// plain value: copied deeply, compared by content. Any thread, one at a time. A 'utxt' descriptor
// holds its text in UTF-8; the platform converts it when it leaves the process.
class QBDKR_EXPORT AppleEventDescriptor {
 public:
  // Makes the null descriptor.
  AppleEventDescriptor() = default;

  // Make a descriptor of bytes, of a text, and of a list.
  static AppleEventDescriptor withBytes(FourCharCode type, std::string bytes) {
    return {type, std::move(bytes)};
  }
  static AppleEventDescriptor withString(std::string utf8) {
    return {typeUnicodeText, std::move(utf8)};
  }
  static AppleEventDescriptor list(std::vector<AppleEventDescriptor> items = {});

  // Return the type, and the bytes: empty for a list.
  [[nodiscard]] FourCharCode descriptorType() const { return type_; }
  [[nodiscard]] const std::string& data() const { return bytes_; }

  // Returns the text of a text descriptor; absent for every other type.
  [[nodiscard]] std::optional<std::string> stringValue() const;

  // Returns the count of a list's items; 0 for every other type.
  [[nodiscard]] std::size_t numberOfItems() const { return items_.size(); }

  // Returns the item at a 1-based index; null if the index is out of range.
  [[nodiscard]] const AppleEventDescriptor* descriptorAtIndex(std::size_t index) const;

  // Puts an item at a 1-based index of a list: replaces the item that is there, or appends at the
  // index after the last one and at index 0. Returns false, without effect, if this is not a list
  // or the index is further out.
  bool insertDescriptor(AppleEventDescriptor&& item, std::size_t index);

  // Converts this value to its own type, or the ID of a process ('kpid') to the 8 bytes of its
  // serial number ('psn '). Absent for every other type, which RPC events do not need, and for an
  // ID without a serial number.
  [[nodiscard]] std::optional<AppleEventDescriptor> coerceToDescriptorType(FourCharCode type) const;

  bool operator==(const AppleEventDescriptor&) const = default;

 private:
  AppleEventDescriptor(FourCharCode type, std::string bytes)
      : type_(type), bytes_(std::move(bytes)) {}

  FourCharCode type_ = typeNull;
  std::string bytes_;
  std::vector<AppleEventDescriptor> items_;
};

// An event or its reply: addressed values under four-character keywords.
class QBDKR_EXPORT AppleEvent {
 public:
  // Makes an empty reply.
  AppleEvent() = default;
  // Makes an event to a target.
  AppleEvent(FourCharCode eventClass, FourCharCode eventID, AppleEventDescriptor&& target,
             std::int16_t returnID, std::int32_t transactionID);

  // Return what the event was made with; typeNull and no target for a reply.
  [[nodiscard]] FourCharCode eventClass() const { return eventClass_; }
  [[nodiscard]] FourCharCode eventID() const { return eventID_; }
  [[nodiscard]] const AppleEventDescriptor& target() const { return target_; }
  [[nodiscard]] std::int16_t returnID() const { return returnID_; }
  [[nodiscard]] std::int32_t transactionID() const { return transactionID_; }

  // Return the value under a keyword; null if it is missing.
  [[nodiscard]] const AppleEventDescriptor* paramDescriptor(FourCharCode keyword) const;
  [[nodiscard]] const AppleEventDescriptor* attributeDescriptor(FourCharCode keyword) const;

  // Store a value, replacing one under the same keyword.
  void setParamDescriptor(FourCharCode keyword, AppleEventDescriptor&& value);
  void setAttributeDescriptor(FourCharCode keyword, AppleEventDescriptor&& value);

 private:
  using Field = std::pair<FourCharCode, AppleEventDescriptor>;
  // An event has one field of each kind as a rule; the first one needs no memory of its own.
  struct Fields {
    [[nodiscard]] const AppleEventDescriptor* find(FourCharCode keyword) const;
    void set(FourCharCode keyword, AppleEventDescriptor&& value);
    std::optional<Field> first;
    std::vector<Field> others;
  };

  FourCharCode eventClass_ = typeNull;
  FourCharCode eventID_ = typeNull;
  AppleEventDescriptor target_;
  std::int16_t returnID_ = kAutoGenerateReturnID;
  std::int32_t transactionID_ = kAnyTransactionID;
  Fields params_;
  Fields attributes_;
};

}  // namespace qbdkr
