#pragma once

#include <map>
#include <string>

#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/EventWatch.h"

namespace qbdkr {

// Remembers which processes are behind names on the bus: a sender may be gone when its event is
// read. Remembers 4,096 names at most. One thread.
class KnownPeers {
 public:
  // Takes a connection that may be waited on.
  explicit KnownPeers(UniqueBus bus);

  // Asks for the owner of every name. It asks before an event comes, because a question delays the
  // reading of answers, whose times are told.
  void learnAll();
  // Takes a change of a name's owner; an empty owner means that the name has none.
  void change(const std::string& name, const std::string& owner);
  // Returns the process behind a name. Asks the bus if the name is unknown.
  [[nodiscard]] const WatchedParty& of(const std::string& name);

 private:
  [[nodiscard]] WatchedParty ask(const std::string& name) const;

  UniqueBus bus_;
  std::map<std::string, WatchedParty> known_;
};

}  // namespace qbdkr
