#pragma once

#include <memory>
#include <span>
#include <string>

namespace acme {

// Computes the SHA-256 of bytes that come piece by piece, with the library of the platform.
class SHA256 {
 public:
  SHA256();
  SHA256(const SHA256&) = delete;
  SHA256& operator=(const SHA256&) = delete;
  ~SHA256();

  // Adds a piece of less than 4 GiB. Both calls throw std::runtime_error if the library fails.
  void add(std::span<const unsigned char> bytes);
  // Returns 64 hexadecimal digits. The object cannot be used afterwards.
  std::string digits();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Returns bytes as two hexadecimal digits each.
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
