#pragma once

#include <cstddef>
#include <optional>
#include <utility>

#include "Platform/Base/Descriptor.h"

namespace qbdkr::direct {

// Memory that one process writes and another one reads. Seals of the kernel keep the size and what
// is in it from everybody else, so neither process can harm the other by it: a read finds whatever
// the other has written there, but always finds memory.
class SealedMemory {
 public:
  // Makes memory of so many bytes, all 0, that this process alone writes. Absent on failure.
  [[nodiscard]] static std::optional<SealedMemory> make(std::size_t size);

  // Maps the memory of another process, to be read. Absent if it is not such memory of that size.
  [[nodiscard]] static std::optional<SealedMemory> map(int descriptor, std::size_t size);

  SealedMemory() = default;
  SealedMemory(SealedMemory&& other) noexcept { *this = std::move(other); }
  SealedMemory& operator=(SealedMemory&& other) noexcept {
    std::swap(address_, other.address_);
    std::swap(size_, other.size_);
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~SealedMemory();

  // Null if it holds no memory.
  [[nodiscard]] std::byte* address() const { return static_cast<std::byte*>(address_); }

  // Returns what is given to the reader, and closed then. Empty for memory of another process.
  [[nodiscard]] Descriptor takeDescriptor() { return std::move(descriptor_); }

 private:
  SealedMemory(void* address, std::size_t size, Descriptor descriptor)
      : address_(address), size_(size), descriptor_(std::move(descriptor)) {}

  void* address_ = nullptr;
  std::size_t size_ = 0;
  Descriptor descriptor_;
};

}  // namespace qbdkr::direct
