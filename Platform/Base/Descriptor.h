#pragma once

#include <poll.h>
#include <unistd.h>

#include <utility>

namespace qbdkr {

// Owns a file descriptor.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int value) : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    close();
    value_ = other.release();
    return *this;
  }
  ~Descriptor() { close(); }

  [[nodiscard]] int get() const { return value_; }
  // Tells whether it can be read without waiting, as the end of a process that has ended.
  [[nodiscard]] bool isReadable() const {
    pollfd state{value_, POLLIN, 0};
    return value_ >= 0 && ::poll(&state, 1, 0) > 0;
  }
  int release() { return std::exchange(value_, -1); }
  explicit operator bool() const { return value_ >= 0; }

 private:
  void close() {
    if (value_ >= 0) ::close(release());
  }

  int value_ = -1;
};

}  // namespace qbdkr
