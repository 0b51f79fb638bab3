#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Export.h"
#include "Platform/Status.h"

namespace qbdkr {

// A four-character code: the ASCII of its big-endian value.
using FourCharCode = std::uint32_t;

consteval FourCharCode fourCharCode(const char (&text)[5]) {
  FourCharCode code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8U | static_cast<unsigned char>(text[i]);
  return code;
}

inline constexpr FourCharCode typeNull = fourCharCode("null");
inline constexpr FourCharCode typeUnicodeText = fourCharCode("utxt");
inline constexpr FourCharCode typeAEList = fourCharCode("list");
inline constexpr FourCharCode typeApplicationBundleID = fourCharCode("bund");
inline constexpr FourCharCode typeKernelProcessID = fourCharCode("kpid");
inline constexpr FourCharCode typeProcessSerialNumber = fourCharCode("psn ");

inline constexpr FourCharCode kCoreEventClass = fourCharCode("aevt");
inline constexpr FourCharCode kAECall = fourCharCode("call");
inline constexpr FourCharCode keyDirectObject = fourCharCode("----");
inline constexpr FourCharCode keyAddressAttr = fourCharCode("addr");

inline constexpr std::int16_t kAutoGenerateReturnID = -1;
inline constexpr std::int32_t kAnyTransactionID = 0;

inline constexpr std::int32_t kAENoReply = 1;
inline constexpr std::int32_t kAEWaitReply = 3;
inline constexpr long kAEDefaultTimeout = -1;  // the platform's own limit
inline constexpr long kNoTimeOut = -2;         // wait as long as it takes

// One typed value inside an event: bytes of a four-character type, or a list of such values.
// A plain value: copied deeply, compared by content, usable from any thread that owns it.
// The text of a 'utxt' descriptor is held in UTF-8; the platform converts it where it leaves the
// process.
class QBDKR_EXPORT AppleEventDescriptor {
 public:
  // The null descriptor.
  AppleEventDescriptor() = default;

  static AppleEventDescriptor withBytes(FourCharCode type, std::string bytes) {
    return {type, std::move(bytes)};
  }
  static AppleEventDescriptor withString(std::string utf8) {
    return {typeUnicodeText, std::move(utf8)};
  }
  static AppleEventDescriptor list(std::vector<AppleEventDescriptor> items = {});

  [[nodiscard]] FourCharCode descriptorType() const { return type_; }
  [[nodiscard]] const std::string& data() const { return bytes_; }

  // The text of a text descriptor; absent for every other type.
  [[nodiscard]] std::optional<std::string> stringValue() const;

  // How many items a list has; 0 for what is not a list.
  [[nodiscard]] std::size_t numberOfItems() const { return items_.size(); }

  // The item at a 1-based index; null when there is none.
  [[nodiscard]] const AppleEventDescriptor* descriptorAtIndex(std::size_t index) const;

  // Puts an item at a 1-based index of a list: replaces the item that is there, or appends at the
  // index behind the last one (also for index 0). Returns false, and changes nothing, on what is
  // not a list and for an index further out.
  bool insertDescriptor(AppleEventDescriptor&& item, std::size_t index);

  // This value as another type; absent where the platform knows no such coercion. Text stays text;
  // the address of a process ('kpid') becomes its serial number ('psn ', 8 bytes).
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
  // An empty reply record.
  AppleEvent() = default;
  AppleEvent(FourCharCode eventClass, FourCharCode eventID, AppleEventDescriptor&& target,
             std::int16_t returnID, std::int32_t transactionID);

  [[nodiscard]] FourCharCode eventClass() const { return eventClass_; }
  [[nodiscard]] FourCharCode eventID() const { return eventID_; }
  [[nodiscard]] const AppleEventDescriptor& target() const { return target_; }
  // The directory in which the executable of the target must lie; absent: anywhere. The transport
  // alone needs to know, so it does not travel.
  [[nodiscard]] const std::optional<std::string>& targetDirectory() const {
    return targetDirectory_;
  }
  void setTargetDirectory(std::string directory) { targetDirectory_ = std::move(directory); }
  [[nodiscard]] std::int16_t returnID() const { return returnID_; }
  [[nodiscard]] std::int32_t transactionID() const { return transactionID_; }

  // The value under a keyword; null when there is none.
  [[nodiscard]] const AppleEventDescriptor* paramDescriptor(FourCharCode keyword) const;
  [[nodiscard]] const AppleEventDescriptor* attributeDescriptor(FourCharCode keyword) const;

  // Stores a value, replacing one that is there.
  void setParamDescriptor(FourCharCode keyword, AppleEventDescriptor&& value);
  void setAttributeDescriptor(FourCharCode keyword, AppleEventDescriptor&& value);

 private:
  using Field = std::pair<FourCharCode, AppleEventDescriptor>;
  // Of each kind there is one as a rule, which needs no memory of its own.
  struct Fields {
    [[nodiscard]] const AppleEventDescriptor* find(FourCharCode keyword) const;
    void set(FourCharCode keyword, AppleEventDescriptor&& value);
    std::optional<Field> first;
    std::vector<Field> others;
  };

  FourCharCode eventClass_ = typeNull;
  FourCharCode eventID_ = typeNull;
  AppleEventDescriptor target_;
  std::optional<std::string> targetDirectory_;
  std::int16_t returnID_ = kAutoGenerateReturnID;
  std::int32_t transactionID_ = kAnyTransactionID;
  Fields params_;
  Fields attributes_;
};

// The road events take between processes. The platform's own is used unless a test put another in
// its place.
class QBDKR_EXPORT AppleEventTransport {
 public:
  // Called on the main thread's run loop with an event from outside; what it stores in the reply
  // goes back to the sender. An exception that leaves it is the platform's to answer.
  using EventHandler = std::function<void(const AppleEvent& event, AppleEvent& reply)>;

  virtual ~AppleEventTransport() = default;

  // Sends one event from any thread and returns its status. It carries RPC events alone ('aevt',
  // 'call'): to a bundle identifier, with a direct object of a class name, a method name and a list
  // of texts, all UTF-8 without a NUL, the names of 1 MiB at most, the texts 262,144 and 64 MiB at
  // most; paramErr for every other. Parameters beside the direct object do not travel. A target
  // outside the directory that the event asks for gets nothing, which is errAEEventNotPermitted;
  // on macOS, where it cannot be told, the directory is not regarded. With
  // kAENoReply it does not wait for the peer: 0 says posted. (When the system's own bus is stuck it
  // waits for that, 5 s at most at a time.) With kAEWaitReply the thread waits for the answer,
  // whose text is stored in reply, if it has one; other threads go on sending meanwhile. An answer
  // of more than 64 MiB is errAEEventNotHandled. The time-out is in ticks of 1/60 s, more than 0,
  // or one of the two constants above.
  virtual OSErr sendMessage(const AppleEvent& event, AppleEvent& reply, std::int32_t sendMode,
                            long timeout) = 0;

  // Installs the one handler of an event class and ID, from any thread, without waiting.
  virtual void setEventHandler(FourCharCode eventClass, FourCharCode eventID,
                               EventHandler handler) = 0;
  virtual void removeEventHandler(FourCharCode eventClass, FourCharCode eventID) = 0;

  // Says in one line why events that are posted with status 0 may not arrive. Absent if no reason
  // is known; one is found out when this process first sends. Any thread, without waiting.
  [[nodiscard]] virtual std::optional<std::string> knownObstacle() const { return std::nullopt; }

  static AppleEventTransport& shared();

  // Puts a transport in the place of the platform's (null: the platform's again). For tests, before
  // any other use; the caller keeps it alive.
  static void replaceShared(AppleEventTransport* transport);
};

// What a platform implements.
AppleEventTransport& platformAppleEventTransport();
std::optional<AppleEventDescriptor> platformCoercion(const AppleEventDescriptor& from,
                                                     FourCharCode type);

}  // namespace qbdkr
