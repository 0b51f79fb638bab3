#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>

namespace doubles {

// An object of Core Foundation, which counts its owners.
class Object {
 public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  void retain() { ++owners_; }
  void release() {
    if (--owners_ == 0) delete this;
  }

 private:
  std::atomic<int> owners_{1};
};

}  // namespace doubles
