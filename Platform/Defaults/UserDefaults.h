#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// The user's settings of one domain, shared with every process that names the same domain. Reads
// see what other processes synchronized. Usable from any thread; all of it blocks for the file, and
// nothing throws but for want of memory or, on first use, of descriptors for the main run loop.
class QBDKR_EXPORT UserDefaults {
 public:
  // The host's own domain: its bundle identifier.
  static UserDefaults& standard();

  // The settings of another application as they are stored now. Absent when there are none.
  [[nodiscard]] static std::optional<PropertyList::Dictionary> persistentDomain(
      std::string_view domain);

  explicit UserDefaults(const std::string& domain);
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;
  ~UserDefaults();

  // Absent when the key is not set.
  [[nodiscard]] std::optional<PropertyList> object(std::string_view key) const;

  // Sets a key, or removes it when the value is absent. Seen by this process at once; stored by the
  // next synchronize(), which the main run loop calls soon when nobody else does. False, and
  // nothing changes, for a value that no property list can hold (text that is not UTF-8, say).
  bool setObject(std::string_view key, std::optional<PropertyList> value);

  // Stores what was set, and waits 0.2 s at most for others that do so, threads of this process
  // included. False when that failed; it is then kept and tried again the next time.
  bool synchronize();

 private:
  struct State;
  static void scheduleWrite(const std::shared_ptr<State>& state);
  std::shared_ptr<State> state_;
};

}  // namespace qbdkr
