#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Marks a request that waits for its answer on this thread, for as long as it lives. Keeps 16 in
// view at a time; further ones are not seen. Allocates nothing.
class WaitingRequest {
 public:
  WaitingRequest(Text bundleID, Text className, Text methodName) noexcept;
  WaitingRequest(const WaitingRequest&) = delete;
  WaitingRequest& operator=(const WaitingRequest&) = delete;
  ~WaitingRequest();

  struct View {
    std::string bundleID;
    std::string method;  // class and method
    std::chrono::milliseconds time{};
    bool isOnMainThread = false;
  };

  // Returns those that wait now, the longest first. Any thread. Throws std::bad_alloc.
  [[nodiscard]] QBDKR_EXPORT static std::vector<View> all();

 private:
  std::size_t place_;  // beyond the last one if it is not in view
};

}  // namespace qbdkr
