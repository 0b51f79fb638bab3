#pragma once

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include "Platform/Base/Descriptor.h"

namespace qbdkr::test {

// Stands between a process and its bus and passes on all bytes. While a test holds it, it keeps
// back the bus's answers to questions for the process behind a name. It reads no more than it can
// pass on.
class BusGate {
 public:
  BusGate(const std::filesystem::path& directory, const std::string& busAddress);
  BusGate(const BusGate&) = delete;
  BusGate& operator=(const BusGate&) = delete;
  ~BusGate();

  [[nodiscard]] const std::string& address() const { return address_; }

  void hold();
  // Waits until the gate keeps back an answer of the bus.
  void awaitHeldAnswer();
  void release();
  // Ends the connections whose answers the gate keeps back.
  void cut();

 private:
  struct Way {
    int from;
    int to;
    std::string passing;
  };
  struct Connection {
    Connection(Descriptor client, Descriptor bus);
    Descriptor client;
    Descriptor bus;
    Way toBus;
    Way toClient;
    std::string latest;  // of what goes to the bus
    bool asks = false;
  };

  void run();
  void accept();
  bool serve(Connection& connection, short client, short bus);
  void wake() const;

  std::string address_;
  std::string busPath_;
  Descriptor listener_;
  Descriptor wake_;
  std::atomic<bool> ends_{false};
  std::atomic<bool> holds_{false};
  std::atomic<bool> cuts_{false};
  std::mutex mutex_;
  std::condition_variable changed_;
  bool hasHeldAnswer_ = false;
  std::list<Connection> connections_;  // of thread_ alone
  std::thread thread_;
};

}  // namespace qbdkr::test
