#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace acme {

// The SHA-256 of bytes that come piece by piece, from the library of the platform.
class SHA256 {
 public:
  SHA256();
  SHA256(const SHA256&) = delete;
  SHA256& operator=(const SHA256&) = delete;
  ~SHA256();

  // A piece of 4 GiB at most. Both throw std::runtime_error when the library fails.
  void add(std::span<const unsigned char> bytes);
  // 64 hexadecimal digits; the end of this object's use.
  std::string digits();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Bytes as two hexadecimal digits each.
inline std::string hexadecimal(std::span<const unsigned char> bytes) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += digits[byte / 16];
    text += digits[byte % 16];
  }
  return text;
}

}  // namespace acme
