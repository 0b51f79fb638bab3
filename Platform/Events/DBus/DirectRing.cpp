#include "Platform/Events/DBus/DirectRing.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace qbdkr::direct {
namespace {

// A message stands behind its size, and the next one begins at a multiple of four.
using Size = std::uint32_t;

constexpr std::size_t roomFor(std::size_t message) {
  return sizeof(Size) + (message + sizeof(Size) - 1) / sizeof(Size) * sizeof(Size);
}

template <class State>
State& stateIn(const SealedMemory& memory) {
  return *std::launder(reinterpret_cast<State*>(memory.address()));
}

std::byte* ringIn(const SealedMemory& memory) { return memory.address() + sizeof(WriterState); }

// Calls a function with each part of so many bytes of the ring, of which there are two at its end.
template <class Part>
void forParts(std::uint32_t position, std::size_t size, Part part) {
  const std::size_t begin = position % ringSize;
  const std::size_t first = std::min(size, ringSize - begin);
  part(begin, 0, first);
  if (first < size) part(0, first, size - first);
}

}  // namespace

std::optional<RingWriter> RingWriter::make() {
  auto memory = SealedMemory::make(writerMemorySize);
  if (!memory) return std::nullopt;
  new (memory->address()) WriterState{};
  return RingWriter(*std::move(memory));
}

bool RingWriter::attach(int readerMemory) {
  auto mapped = SealedMemory::map(readerMemory, readerMemorySize);
  if (mapped) readerMemory_ = *std::move(mapped);
  return isAttached();
}

const ReaderState& RingWriter::reader() const { return stateIn<const ReaderState>(readerMemory_); }

// A receiver whose count cannot be leaves no room.
std::size_t RingWriter::room() const {
  if (!isAttached()) return 0;
  const std::uint32_t unread = written_ - reader().read.load(std::memory_order_acquire);
  return unread <= ringSize ? ringSize - unread : 0;
}

// Tells of the message before it looks whether the receiver sleeps. That goes to sleep before it
// looks for messages, so one of the two sees the other.
bool RingWriter::write(std::string_view message) {
  const std::size_t needed = roomFor(message.size());
  if (message.size() > largestMessage || needed > room()) return false;
  const auto size = static_cast<Size>(message.size());
  copy(written_, &size, sizeof size);
  copy(written_ + sizeof size, message.data(), message.size());
  written_ += static_cast<std::uint32_t>(needed);
  stateIn<WriterState>(memory_).written.store(written_);
  return true;
}

bool RingWriter::isReaderAsleep() const {
  return isAttached() && reader().sleeps.load() != wokenSleep_;
}

bool RingWriter::mustWakeReader() {
  const std::uint32_t sleep = reader().sleeps.load();
  return std::exchange(wokenSleep_, sleep) != sleep;
}

void RingWriter::copy(std::uint32_t position, const void* bytes, std::size_t size) {
  forParts(position, size, [&](std::size_t begin, std::size_t done, std::size_t count) {
    std::memcpy(ringIn(memory_) + begin, static_cast<const std::byte*>(bytes) + done, count);
  });
}

std::optional<RingReader> RingReader::map(int writerMemory) {
  auto mapped = SealedMemory::map(writerMemory, writerMemorySize);
  auto memory = mapped ? SealedMemory::make(readerMemorySize) : std::nullopt;
  if (!memory) return std::nullopt;
  new (memory->address()) ReaderState{};
  return RingReader(*std::move(mapped), *std::move(memory));
}

ReaderState& RingReader::state() const { return stateIn<ReaderState>(memory_); }

std::uint32_t RingReader::unread() const {
  return stateIn<const WriterState>(writerMemory_).written.load() - read_;
}

// Copies a message before anything looks at it: the sender may change what it has written.
RingReader::Message RingReader::next() {
  const std::size_t present = unread();
  if (present == 0) return {};
  const Message broken{Message::Kind::broken, {}};
  Size size = 0;
  if (present > ringSize || present < sizeof size) return broken;
  copy(read_, &size, sizeof size);
  if (size > largestMessage || roomFor(size) > present) return broken;
  message_.resize(size);
  copy(read_ + sizeof size, message_.data(), size);
  read_ += static_cast<std::uint32_t>(roomFor(size));
  state().read.store(read_, std::memory_order_release);
  return {Message::Kind::bytes, message_};
}

bool RingReader::sleep() {
  if (!isToBeWoken_) state().sleeps.store(++sleeps_);
  isToBeWoken_ = true;
  return isEmpty();
}

void RingReader::copy(std::uint32_t position, void* bytes, std::size_t size) const {
  forParts(position, size, [&](std::size_t begin, std::size_t done, std::size_t count) {
    std::memcpy(static_cast<std::byte*>(bytes) + done, ringIn(writerMemory_) + begin, count);
  });
}

}  // namespace qbdkr::direct
