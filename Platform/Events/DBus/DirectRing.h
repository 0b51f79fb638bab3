#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/Events/DBus/SealedMemory.h"

// The row of messages of a direct connection, from its sender to its receiver, without a system
// call for each: the sender writes them into memory that the receiver reads. The receiver has
// memory of its own, in which it tells how far it has read and whether it sleeps. Neither can write
// what is the other's, and each takes what it reads there as coming from anybody.
namespace qbdkr::direct {

inline constexpr std::size_t ringSize = std::size_t{256} << 10U;       // bytes, a power of 2
inline constexpr std::size_t largestMessage = std::size_t{64} << 10U;  // bytes

// The sender's state. The ring follows behind it.
struct alignas(64) WriterState {
  std::atomic<std::uint32_t> written;  // bytes since the beginning, modulo 2^32
};

// The receiver's state.
struct alignas(64) ReaderState {
  std::atomic<std::uint32_t> read;    // bytes since the beginning, modulo 2^32
  std::atomic<std::uint32_t> sleeps;  // how often it went to sleep, modulo 2^32
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

inline constexpr std::size_t writerMemorySize = sizeof(WriterState) + ringSize;
inline constexpr std::size_t readerMemorySize = sizeof(ReaderState);

// Writes messages. One thread at a time.
class RingWriter {
 public:
  // Absent on failure.
  [[nodiscard]] static std::optional<RingWriter> make();

  // Returns what the receiver is given.
  [[nodiscard]] Descriptor takeDescriptor() { return memory_.takeDescriptor(); }
  // Takes what the receiver gave; false if that cannot be used. There is no room before.
  [[nodiscard]] bool attach(int readerMemory);

  // Writes a whole message, or nothing if there is no room for it.
  [[nodiscard]] bool write(std::string_view message);

  // Tells whether the receiver sleeps, and was not woken since.
  [[nodiscard]] bool isReaderAsleep() const;
  // Tells whether to wake the receiver for what was written: once for each of its sleeps.
  [[nodiscard]] bool mustWakeReader();

 private:
  explicit RingWriter(SealedMemory memory) : memory_(std::move(memory)) {}

  [[nodiscard]] bool isAttached() const { return readerMemory_.address() != nullptr; }
  [[nodiscard]] const ReaderState& reader() const;
  [[nodiscard]] std::size_t room() const;
  void copy(std::uint32_t position, const void* bytes, std::size_t size);

  SealedMemory memory_;
  SealedMemory readerMemory_;  // none before attach()
  std::uint32_t written_ = 0;
  std::uint32_t wokenSleep_ = 0;  // the last one from which the receiver was woken
};

// Reads messages. One thread.
class RingReader {
 public:
  struct Message {
    enum class Kind { bytes, none, broken } kind = Kind::none;
    std::string_view bytes;  // valid until the next one
  };

  // Reads what a sender gave. Absent if that cannot be used, or on failure.
  [[nodiscard]] static std::optional<RingReader> map(int writerMemory);

  // Returns what the sender is given.
  [[nodiscard]] Descriptor takeDescriptor() { return memory_.takeDescriptor(); }

  [[nodiscard]] bool isEmpty() const { return unread() == 0; }
  // Takes the next message. After one that breaks the contract there is no other.
  [[nodiscard]] Message next();

  // Has the sender wake the receiver for its next message. False if there is a message, for which
  // the receiver may be woken or not.
  [[nodiscard]] bool sleep();
  // Notes that the sender has woken the receiver.
  void noteWake() { isToBeWoken_ = false; }

 private:
  RingReader(SealedMemory writerMemory, SealedMemory memory)
      : writerMemory_(std::move(writerMemory)), memory_(std::move(memory)) {}

  [[nodiscard]] std::uint32_t unread() const;
  [[nodiscard]] ReaderState& state() const;
  void copy(std::uint32_t position, void* bytes, std::size_t size) const;

  SealedMemory writerMemory_;
  SealedMemory memory_;
  std::uint32_t read_ = 0;
  std::uint32_t sleeps_ = 0;
  bool isToBeWoken_ = false;
  std::string message_;
};

}  // namespace qbdkr::direct
