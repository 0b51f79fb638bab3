#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "Platform/Events/DBus/KnownPeers.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/EventWatch.h"

namespace qbdkr {

// Watches the events of all processes on a connection that the bus has made a monitor: see
// watchEvents(). It asks for the processes on another connection, as a monitor may send nothing.
class EventMonitor {
 public:
  explicit EventMonitor(const EventWatch& watch) : watch_(&watch) {}

  // Runs the watch, once.
  [[nodiscard]] std::optional<std::string> run();

 private:
  using Clock = std::chrono::steady_clock;
  // A call, by its sender's unique name and its number.
  using Call = std::pair<std::string, std::uint64_t>;

  struct Awaited {
    Call call;
    WatchedEvent event;
    Clock::time_point start;
    std::size_t size;
  };
  using List = std::list<Awaited>;

  [[nodiscard]] std::optional<std::string> open();
  [[nodiscard]] std::optional<std::string> becomeMonitor();
  [[nodiscard]] std::optional<std::string> follow();
  // Waits for a message or for the end of the watch; false at the end.
  [[nodiscard]] bool wait(bool isIdle) const;

  void take(sd_bus_message* message);
  void takeCall(sd_bus_message* message);
  void takeAnswer(sd_bus_message* message);
  void takeOwner(sd_bus_message* message);
  [[nodiscard]] bool isWanted(const WatchedEvent& event) const;
  void keep(Awaited&& awaited);
  void tell(const WatchedEvent& event);
  void conclude(List::iterator awaited);
  void giveUp(List::iterator awaited, const char* reason);
  void giveUpLateOnes();
  void giveUpAll(const char* reason);

  const EventWatch* watch_;
  UniqueBus bus_;
  std::optional<KnownPeers> peers_;
  List awaited_;  // the oldest first
  std::map<Call, List::iterator> places_;
  std::size_t size_ = 0;
  bool isOver_ = false;
};

}  // namespace qbdkr
