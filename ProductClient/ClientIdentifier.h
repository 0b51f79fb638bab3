#pragma once

#include <mutex>
#include <utility>

#include <ClientComm/TextValue.h>

#include "Platform/Base/ForkSafeMutex.h"

namespace qbdkr {

// The client identifier that was fetched last. Any thread.
class ClientIdentifier {
 public:
  // Stores the identifier, and returns it.
  String set(String identifier) {
    const std::lock_guard lock(mutex_);
    identifier_ = std::move(identifier);
    return identifier_;
  }

  [[nodiscard]] String get() const {
    const std::lock_guard lock(mutex_);
    return identifier_;
  }

 private:
  mutable ForkSafeMutex mutex_;
  String identifier_;
};

}  // namespace qbdkr
