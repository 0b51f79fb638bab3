#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace qbdkr {

// Owns one reference to a Core Foundation object.
template <class Ref>
class CFRef {
 public:
  CFRef() = default;
  // Takes over a reference returned by a function with "Create" or "Copy" in its name.
  explicit CFRef(Ref owned) : ref_(owned) {}
  CFRef(CFRef&& other) noexcept : ref_(std::exchange(other.ref_, nullptr)) {}
  CFRef& operator=(CFRef&& other) noexcept {
    std::swap(ref_, other.ref_);
    return *this;
  }
  ~CFRef() {
    if (ref_ != nullptr) CFRelease(ref_);
  }

  // Retains an object that another owner keeps as well.
  [[nodiscard]] static CFRef retained(Ref borrowed) {
    if (borrowed != nullptr) CFRetain(borrowed);
    return CFRef(borrowed);
  }

  [[nodiscard]] Ref get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }

 private:
  Ref ref_ = nullptr;
};

}  // namespace qbdkr
