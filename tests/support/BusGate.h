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

// Passes on all bytes between a process and its bus. While a test holds the gate, it holds back the
// bus's answers to questions for the process behind a name. Reads no more than it can pass on.
class BusGate {
 public:
  BusGate(const std::filesystem::path& directory, const std::string& busAddress);
  BusGate(const BusGate&) = delete;
  BusGate& operator=(const BusGate&) = delete;
  ~BusGate();

  [[nodiscard]] const std::string& address() const { return address_; }

  void hold();
  // Waits until the gate holds an answer of the bus.
  void awaitHeldAnswer();
  void release();
  // Closes the connections whose answers the gate holds.
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
    std::string latest;  // the last bytes to the bus
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
  std::list<Connection> connections_;  // used only by thread_
  std::thread thread_;
};

}  // namespace qbdkr::test
