#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

namespace qbdkr {

// The user's settings of one domain, shared with every process that names the same domain. Reads
// see changes that other processes synchronized. Every call runs on any thread, and may block for
// the file. Throws only if out of memory or, on first use of the main run loop, out of descriptors.
class QBDKR_EXPORT UserDefaults {
 public:
  // Returns the settings of the host's own domain: its bundle identifier.
  static UserDefaults& standard();

  // Returns the settings of another application as they are stored now. Absent if none are stored.
  [[nodiscard]] static std::optional<PropertyList::Dictionary> persistentDomain(
      std::string_view domain);

  // Names a domain: UTF-8 of at most 200 bytes, without "/" or NUL, and without a dot at its
  // beginning. Settings under any other name last until the object ends, and are never stored.
  explicit UserDefaults(const std::string& domain);
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;
  ~UserDefaults();

  // Returns the value of a key; absent if the key is not set.
  [[nodiscard]] std::optional<PropertyList> object(std::string_view key) const;

  // Sets a key, or removes it if the value is absent. This process sees the change at once; the
  // next synchronize() stores it, which the main run loop calls soon in any case. False, without
  // effect, if no property list can hold the key or the value (text that is not UTF-8, say).
  bool setObject(std::string_view key, std::optional<PropertyList> value);

  // Stores the changes. On Linux it waits 0.2 s at most for others that do so, threads of this
  // process included. False on failure; the changes are then kept and stored the next time.
  bool synchronize();

 private:
  struct State;
  static void scheduleWrite(const std::shared_ptr<State>& state);
  std::shared_ptr<State> state_;
};

}  // namespace qbdkr
