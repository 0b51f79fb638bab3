#pragma once

#include <cstddef>
#include <cstdint>

namespace qbdkr::propertylist {

// The bounds of every reader. The writers keep them as well: every list they write can be read.
inline constexpr std::size_t maximumBytes = std::size_t{16} << 20;
inline constexpr std::size_t maximumLevels = 256;
inline constexpr std::size_t maximumValues = 1'000'000;
// A binary list may refer to one text many times, so the sum of all texts has its own bound.
inline constexpr std::size_t maximumContent = 4 * maximumBytes;

// Bounds a reader. The defaults are those for a host's own files.
struct Bounds {
  std::size_t bytes = maximumBytes;
  std::size_t levels = maximumLevels;
  std::size_t values = maximumValues;
  std::size_t content = maximumContent;
};

// Bounds a list that any program may have written and every host may have to read. Applications
// describe themselves briefly: ten thousand values would be a thousand document types. Reading such
// a list takes about 3 MB of memory.
inline constexpr Bounds foreignBounds{std::size_t{1} << 20, 32, 10'000, std::size_t{1} << 20};

// Gives out a limited amount, and nothing more after the first refusal.
class Allowance {
 public:
  constexpr explicit Allowance(std::size_t amount) : left_(amount) {}
  [[nodiscard]] constexpr bool take(std::uint64_t amount = 1) {
    if (amount > left_) {
      left_ = 0;
      return false;
    }
    left_ -= static_cast<std::size_t>(amount);
    return true;
  }

 private:
  std::size_t left_;
};

}  // namespace qbdkr::propertylist
