#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Events/DBus/Introduction.h"
#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Asks the bus for the process of a peer and its application, without waiting, on a connection of
// its own. On the connection that receives, the answer would come after the whole backlog, which
// the bus library would read into memory. Belongs to the main run loop.
class PeerInquiry {
 public:
  struct Peer {
    std::optional<pid_t> process;         // absent if the bus does not tell, or is not believed
    std::optional<std::string> bundleID;  // absent if the peer is not an application
    bool isGone = false;                  // it had left the bus already
  };
  using Answer = std::function<void(Peer peer)>;

  // An inquiry in progress. No answer comes after its destruction.
  class Question {
   public:
    Question(PeerInquiry& inquiry, std::string peer, std::optional<Introduction> introduction,
             Answer answer);

   private:
    friend class PeerInquiry;

    [[nodiscard]] bool ask(sd_bus* bus);
    void take(sd_bus_message* reply);
    void end();

    static int onReply(sd_bus_message* reply, void* self, sd_bus_error* error);

    PeerInquiry& inquiry_;
    const std::string peer_;
    const std::optional<Introduction> introduction_;
    const Answer answer_;
    Peer found_;
    BusSlot slot_;
  };

  // Connects to the bus; false on failure. The function is called when the connection is lost.
  [[nodiscard]] bool open(std::function<void()> onLost);
  void close();

  // Asks for a peer. The answer comes once, from the main run loop, never from inside this call;
  // destroy the question then. Null if the bus cannot be asked. The answer tells the program that
  // the peer's process ran while it was on the bus: a peer that is gone when its program is known
  // may have become another one, and does not count as an application. Nor does a peer behind the
  // same proxy as this process, or any peer if the bus is in another namespace of processes, unless
  // it has introduced itself.
  [[nodiscard]] std::unique_ptr<Question> ask(const std::string& peer,
                                              std::optional<Introduction> introduction,
                                              Answer answer);

 private:
  void askForSelf();
  [[nodiscard]] bool isBehindProxy() const;
  [[nodiscard]] bool isHidden(pid_t process) const;
  static int onSelf(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onDisconnected(sd_bus_message* message, void* self, sd_bus_error* error);

  UniqueBus bus_;
  BusSlot self_;
  std::optional<pid_t> ownProcess_;  // as the bus knows it
  std::function<void()> onLost_;
};

}  // namespace qbdkr
