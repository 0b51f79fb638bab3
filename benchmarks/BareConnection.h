#pragma once

#include <string>
#include <vector>

#include "Call.h"

struct sd_bus;

namespace qbdkr::bench {

// The reference of requests: the same call to the same peer, on a bare connection to the bus.
class BareConnection {
 public:
  BareConnection();
  BareConnection(const BareConnection&) = delete;
  BareConnection& operator=(const BareConnection&) = delete;
  ~BareConnection();

  // Waits for the answer, and returns it. Ends the program on failure.
  std::string ask(const Call& call);
  void post(const Call& call);

 private:
  sd_bus* bus_ = nullptr;
};

}  // namespace qbdkr::bench
