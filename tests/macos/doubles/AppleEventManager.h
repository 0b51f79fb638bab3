#pragma once

#include <CoreServices/CoreServices.h>

#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

// An Apple Event Manager that notes what is sent, answers it as a test says, and delivers events to
// the handlers of this process.
namespace doubles {

inline constexpr mach_port_t registeredPort = 77;
inline constexpr OSErr coercionFails = -1700;

// The contents of a descriptor of the system.
struct AEDescriptor {
  DescType type = typeNull;
  std::string bytes;
  std::vector<AEDescriptor> items;
  std::map<AEKeyword, AEDescriptor> parameters;
  std::map<AEKeyword, AEDescriptor> attributes;

  static AEDescriptor of(DescType type, std::string bytes);
  // UTF-16 in the processor's byte order, without a mark.
  static AEDescriptor text(const std::u16string& units);
  static AEDescriptor number(std::int32_t number);
  static AEDescriptor list(std::vector<AEDescriptor> items);
  static AEDescriptor event(AEEventID identifier);
};

struct Sent {
  AEDescriptor event;
  AESendMode mode;
  long timeout;
  int pools;  // autorelease pools that the sender's thread had

  // Returns the port for the reply; 0 without one.
  [[nodiscard]] mach_port_t replyPort() const;
};

class AppleEventManager {
 public:
  static AppleEventManager& shared();

  // Answers what is sent and waited for. Called on the sender's thread.
  std::function<OSStatus(AEDescriptor& reply)> answer;

  // Any thread.
  [[nodiscard]] std::vector<Sent> sent() const;
  [[nodiscard]] Sent lastSent() const { return sent().back(); }
  // Lays an event at the port of this process.
  static void deliver(const AEDescriptor& event);
  // Returns the replies of the handlers of this process.
  [[nodiscard]] std::vector<AEDescriptor> replies() const;
  // Returns the types that something was to be converted to.
  [[nodiscard]] std::vector<DescType> coercions() const;
};

}  // namespace doubles
