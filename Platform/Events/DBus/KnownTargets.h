#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/DBus/DirectLink.h"
#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// The record that a sender keeps of an application it sends events to. Used under the lock of the
// connection, like all that follows.
struct KnownTarget {
  // The connection of an owner whose executable was found in a directory.
  struct Approved {
    std::string directory;
    std::string address;
  };

  KnownTarget(std::string itsIdentifier, std::string itsName)
      : identifier(std::move(itsIdentifier)), name(std::move(itsName)) {}

  // Has the bus tell of changes of the name's owner from now on. False if it cannot be asked.
  [[nodiscard]] bool watchOwner(sd_bus* bus);
  // Tells whether the name has an owner, as far as the bus and its direct connection tell.
  [[nodiscard]] bool isTrusted() const { return present && !(link && link->isClosed()); }
  [[nodiscard]] bool hasOpenLink() const { return link && link->isOpen(); }
  // Stores the address of an approved owner. False if it is not approved for the directory.
  [[nodiscard]] bool findApproved(const std::string& directory, std::string& address) const;
  void approve(const std::string& directory, const std::string& address);
  // The bus tells of the owner no more.
  void forgetBus();

  const std::string identifier;
  const std::string name;
  BusSlot watch;  // empty if the connection to the bus does not tell of the owner
  bool present = false;
  std::uint64_t changes = 0;
  unsigned events = 0;  // over the bus; not counted further than matters
  std::shared_ptr<DirectLink> link;
  bool hadLink = false;              // the present owner takes direct connections
  bool hasNoOffer = false;           // none could be made, or the owner before it left over one
  std::size_t untaken = 0;           // bytes sent over the bus since it was offered another one
  Descriptor introduction;           // to the present owner, behind a proxy
  std::optional<Approved> approved;  // of the present owner

 private:
  void approveLink() const;
  static int onOwnerChanged(sd_bus_message* message, void* target, sd_bus_error* error);
};

// Asks the bus whether the name of a target has an owner. Destroyed under the lock, too.
struct PresenceQuestion {
  // False if the bus cannot be asked.
  [[nodiscard]] bool send(std::shared_ptr<sd_bus> connection);

  std::shared_ptr<KnownTarget> target;
  std::shared_ptr<sd_bus> bus;  // outlives the slot
  BusSlot slot;
  bool done = false;

 private:
  static int onAnswer(sd_bus_message* message, void* question, sd_bus_error* error);
};

// The targets of a process, 64 at most and those with a direct connection.
class KnownTargets {
 public:
  // Returns null if the application is unknown.
  [[nodiscard]] const std::shared_ptr<KnownTarget>& find(const std::string& identifier);
  [[nodiscard]] std::shared_ptr<KnownTarget> findOrAdd(const std::string& identifier,
                                                       const std::string& name);
  // Forgets what the bus told, whose connection ends: all but the open direct connections.
  void forgetBus();

 private:
  void forgetThoseOnTheBus();

  std::map<std::string, std::shared_ptr<KnownTarget>> targets_;  // by bundle identifier
  std::shared_ptr<KnownTarget> latest_;  // nearly all events of a process go to the same one
  const std::shared_ptr<KnownTarget> none_;
};

}  // namespace qbdkr
