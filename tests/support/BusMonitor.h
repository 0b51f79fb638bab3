#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Peer.h"

namespace qbdkr::test {

// Watches all messages on the bus of a test.
class BusMonitor {
 public:
  explicit BusMonitor(const Peer& peer);

  // Wait until the monitor has seen that many calls of an RPC method, or of "INTERFACE MEMBER", or
  // that many times that a name got an owner or lost it.
  void waitForCalls(const std::string& method, std::size_t count);
  void waitForMember(const std::string& member, std::size_t count);
  void waitForOwner(const std::string& name, std::size_t count = 1);
  void waitForLoss(const std::string& name, std::size_t count = 1);

  // Returns the name of the stream in which a call is listed, given the usual name and the call's
  // texts; absent to leave it out.
  using Rule = std::function<std::optional<std::string>(const std::string& stream,
                                                        const std::vector<std::string>& texts)>;

  // Describes all that went over the bus so far. TITLES has the title of each well-known name: its
  // owners are "TITLE 1", "TITLE 2" and so on, in the order in which they got it. Any other process
  // is "another process". Exchanges with the bus itself are left out, but for the owners of the
  // names.
  //
  // The description has a section for each sender and receiver, because only their messages have
  // an order. Each call stands in a line with its flags, and its answer in the line after it.
  [[nodiscard]] std::string conversation(const std::map<std::string, std::string>& titles,
                                         const Rule& rule) const;

 private:
  void waitForLines(const std::string& start, const std::string& words, std::size_t count);

  std::unique_ptr<ChildProcess> process_;
};

}  // namespace qbdkr::test
