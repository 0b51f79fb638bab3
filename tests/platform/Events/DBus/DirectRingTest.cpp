#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "Platform/Events/DBus/DirectRing.h"
#include "Platform/Events/DBus/DirectSocket.h"

namespace qbdkr::direct {
namespace {

using Kind = RingReader::Message::Kind;

// Both ends of a ring in one process.
struct Ring {
  Ring() { EXPECT_TRUE(writer.attach(reader.takeDescriptor().get())); }

  std::string next() {
    const auto message = reader.next();
    EXPECT_EQ(message.kind, Kind::bytes);
    return std::string(message.bytes);
  }

  RingWriter writer = RingWriter::make().value();
  RingReader reader = RingReader::map(writer.takeDescriptor().get()).value();
};

// A sender that writes what it likes.
struct HostileSender {
  WriterState& state() { return *reinterpret_cast<WriterState*>(memory.address()); }
  void writeSize(std::uint32_t size) {
    std::memcpy(memory.address() + sizeof(WriterState), &size, sizeof size);
  }

  SealedMemory memory = SealedMemory::make(writerMemorySize).value();
  RingReader reader = RingReader::map(memory.takeDescriptor().get()).value();
};

TEST(DirectRingTest, MessagesComeAsTheyWereWritten) {
  Ring ring;
  EXPECT_TRUE(ring.reader.isEmpty());
  for (const std::string& message : {std::string("one"), std::string(), std::string("\0\1", 2)})
    EXPECT_TRUE(ring.writer.write(message));
  EXPECT_FALSE(ring.reader.isEmpty());
  EXPECT_EQ(ring.next(), "one");
  EXPECT_EQ(ring.next(), "");
  EXPECT_EQ(ring.next(), std::string("\0\1", 2));
  EXPECT_EQ(ring.reader.next().kind, Kind::none);
}

TEST(DirectRingTest, MessagesOfAllSizesGoOnAtTheBeginningBehindTheEnd) {
  Ring ring;
  std::size_t bytes = 0;
  for (unsigned round = 0; bytes < 20 * ringSize; ++round) {
    const std::string message(round * 37 % (largestMessage + 1), static_cast<char>(round));
    ASSERT_TRUE(ring.writer.write(message));
    ASSERT_EQ(ring.next(), message) << round;
    bytes += message.size();
  }
}

TEST(DirectRingTest, CountsGoOnAtZeroBehindTheLargest) {
  Ring ring;
  std::string message(largestMessage, 'x');
  for (unsigned i = 0; i < 70'000; ++i) {
    message.replace(0, sizeof i, reinterpret_cast<const char*>(&i), sizeof i);
    ASSERT_TRUE(ring.writer.write(message)) << i;
    const auto read = ring.reader.next();
    ASSERT_EQ(read.kind, Kind::bytes) << i;
    ASSERT_EQ(read.bytes.substr(0, sizeof i), message.substr(0, sizeof i)) << i;
  }
}

TEST(DirectRingTest, MessageWithoutRoomIsNotWrittenAtAll) {
  Ring ring;
  const std::string message(1020, 'x');
  std::size_t written = 0;
  while (ring.writer.write(message)) ++written;
  EXPECT_EQ(written, ringSize / (message.size() + 4));
  EXPECT_FALSE(ring.writer.write(message));
  EXPECT_EQ(ring.next(), message);
  EXPECT_TRUE(ring.writer.write("last"));
  EXPECT_FALSE(ring.writer.write(message)) << "there is a little less room now";
  for (std::size_t i = 1; i < written; ++i) ASSERT_EQ(ring.next(), message);
  EXPECT_EQ(ring.next(), "last");
  EXPECT_TRUE(ring.reader.isEmpty());
}

TEST(DirectRingTest, LargestMessageIsTakenAndALargerOneIsNot) {
  Ring ring;
  EXPECT_FALSE(ring.writer.write(std::string(largestMessage + 1, 'x')));
  EXPECT_TRUE(ring.writer.write(std::string(largestMessage, 'x')));
  EXPECT_EQ(ring.next().size(), largestMessage);
}

TEST(DirectRingTest, ReaderIsWokenOnceForEachSleep) {
  Ring ring;
  EXPECT_FALSE(ring.writer.isReaderAsleep());
  EXPECT_FALSE(ring.writer.mustWakeReader()) << "it begins awake";
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(ring.reader.sleep());
    EXPECT_TRUE(ring.reader.sleep()) << "it sleeps already";
    EXPECT_TRUE(ring.writer.isReaderAsleep());
    EXPECT_TRUE(ring.writer.write("x"));
    EXPECT_TRUE(ring.writer.mustWakeReader());
    EXPECT_FALSE(ring.writer.isReaderAsleep());
    EXPECT_TRUE(ring.writer.write("y"));
    EXPECT_FALSE(ring.writer.mustWakeReader()) << "it is on its way";
    ring.reader.noteWake();
    EXPECT_EQ(ring.next(), "x");
    EXPECT_EQ(ring.next(), "y");
  }
}

TEST(DirectRingTest, ReaderDoesNotSleepOverAMessage) {
  Ring ring;
  EXPECT_TRUE(ring.writer.write("x"));
  EXPECT_FALSE(ring.reader.sleep());
  EXPECT_EQ(ring.next(), "x");
  EXPECT_TRUE(ring.reader.sleep());
  EXPECT_TRUE(ring.writer.mustWakeReader()) << "as it was not told of any wake";
}

// The sender waits until each message is taken: no later one wakes a reader that sleeps over it.
TEST(DirectRingTest, NoWakeIsLostBetweenTwoThreads) {
  Ring ring;
  auto sockets = makeSocketPair();
  ASSERT_TRUE(sockets);
  constexpr unsigned count = 30'000;
  std::atomic<unsigned> taken = 0;
  std::atomic<bool> isOver = false;
  std::thread sender([&] {
    for (unsigned i = 0; i < count && !isOver; ++i) {
      EXPECT_TRUE(ring.writer.write("x"));
      if (ring.writer.mustWakeReader()) {
        EXPECT_TRUE(passWake(sockets->kept.get()));
      }
      while (taken == i && !isOver) std::this_thread::yield();
    }
  });
  while (taken < count) {
    if (ring.reader.next().kind == Kind::bytes) {
      ++taken;
      continue;
    }
    if (!ring.reader.sleep()) continue;
    pollfd readable{sockets->given.get(), POLLIN, 0};
    const bool isWoken = ::poll(&readable, 1, 20'000) == 1;
    EXPECT_TRUE(isWoken) << "after " << taken;
    if (!isWoken) break;
    EXPECT_EQ(takeNews(sockets->given.get()), News::wake);
    ring.reader.noteWake();
  }
  isOver = true;
  sender.join();
  EXPECT_EQ(taken, count);
}

TEST(DirectRingTest, WhatWasWrittenIsReadAfterItsSenderHasEnded) {
  auto writer = RingWriter::make();
  ASSERT_TRUE(writer);
  auto reader = RingReader::map(writer->takeDescriptor().get());
  ASSERT_TRUE(reader && writer->attach(reader->takeDescriptor().get()));
  EXPECT_TRUE(writer->write("last"));
  writer.reset();
  EXPECT_EQ(reader->next().bytes, "last");
}

TEST(DirectRingTest, CountThatCannotBeBreaksIt) {
  for (const std::uint32_t written : {1U, 3U, std::uint32_t{ringSize} + 4U, 0x80000000U, ~0U}) {
    HostileSender sender;
    sender.state().written = written;
    EXPECT_EQ(sender.reader.next().kind, Kind::broken) << written;
  }
}

TEST(DirectRingTest, SizeThatCannotBeBreaksIt) {
  for (const std::uint32_t size : {5U, 1000U, std::uint32_t{largestMessage} + 1U, ~0U, ~0U - 3U}) {
    HostileSender sender;
    sender.writeSize(size);
    sender.state().written = 8;
    EXPECT_EQ(sender.reader.next().kind, Kind::broken) << size;
  }
}

TEST(DirectRingTest, ReaderThatTellsWhatCannotBeHasNoRoom) {
  RingWriter writer = RingWriter::make().value();
  EXPECT_FALSE(writer.write("x")) << "nobody reads yet";
  auto memory = SealedMemory::make(readerMemorySize);
  ASSERT_TRUE(memory && writer.attach(memory->takeDescriptor().get()));
  auto& state = *reinterpret_cast<ReaderState*>(memory->address());
  for (const std::uint32_t read : {1U, 0x80000000U, ~0U - static_cast<std::uint32_t>(ringSize)}) {
    state.read = read;
    EXPECT_FALSE(writer.write("x")) << read;
  }
  state.read = 0;
  EXPECT_TRUE(writer.write("x"));
}

// --- The memory

constexpr std::size_t size = 10'000;

Descriptor newFile(unsigned flags = MFD_ALLOW_SEALING) {
  return Descriptor(::memfd_create("test", MFD_CLOEXEC | flags));
}

TEST(SealedMemoryTest, IsSeenByTheOtherProcessAndChangedByNone) {
  auto made = SealedMemory::make(size);
  ASSERT_TRUE(made);
  const Descriptor file = made->takeDescriptor();
  const auto mapped = SealedMemory::map(file.get(), size);
  ASSERT_TRUE(mapped);
  made->address()[size - 1] = std::byte{7};
  EXPECT_EQ(mapped->address()[size - 1], std::byte{7});

  EXPECT_EQ(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0), MAP_FAILED);
  EXPECT_NE(::mprotect(mapped->address(), size, PROT_READ | PROT_WRITE), 0);
  EXPECT_LT(::pwrite(file.get(), "x", 1, 0), 0);
  EXPECT_NE(::ftruncate(file.get(), 0), 0);
  EXPECT_NE(::ftruncate(file.get(), 2 * size), 0);
  // Nor does its maker give it back, which could end the process that reads it.
  EXPECT_NE(::fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 4096), 0);
  EXPECT_NE(::madvise(made->address(), 4096, MADV_REMOVE), 0);
}

TEST(SealedMemoryTest, OfAnotherSizeIsRefused) {
  const Descriptor file = SealedMemory::make(size)->takeDescriptor();
  EXPECT_TRUE(SealedMemory::map(file.get(), size));
  EXPECT_FALSE(SealedMemory::map(file.get(), size - 1));
  EXPECT_FALSE(SealedMemory::map(file.get(), size + 1));
}

TEST(SealedMemoryTest, WithoutAllSealsIsRefused) {
  constexpr int all = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL | F_SEAL_FUTURE_WRITE;
  for (const int missing : {0, F_SEAL_SHRINK, F_SEAL_GROW, F_SEAL_SEAL, F_SEAL_FUTURE_WRITE}) {
    const Descriptor file = newFile();
    ASSERT_EQ(::pwrite(file.get(), std::string(size, 'x').data(), size, 0),
              static_cast<ssize_t>(size));
    ASSERT_EQ(::fcntl(file.get(), F_ADD_SEALS, all & ~missing), 0);
    EXPECT_EQ(SealedMemory::map(file.get(), size).has_value(), missing == 0) << missing;
  }
}

// The reader would have to pay for the pages, and would end without them.
TEST(SealedMemoryTest, WithHolesIsRefused) {
  constexpr off_t behind = 1 << 20;
  for (const bool hasBlocks : {false, true}) {
    const Descriptor file = newFile();
    ASSERT_EQ(::ftruncate(file.get(), size), 0);
    if (hasBlocks) {
      ASSERT_EQ(::fallocate(file.get(), FALLOC_FL_KEEP_SIZE, behind, behind), 0);
    }
    ASSERT_EQ(::fcntl(file.get(), F_ADD_SEALS,
                      F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL | F_SEAL_FUTURE_WRITE),
              0);
    EXPECT_FALSE(SealedMemory::map(file.get(), size)) << hasBlocks;
  }
}

TEST(SealedMemoryTest, WhatIsNoMemoryIsRefused) {
  const Descriptor device(::open("/dev/zero", O_RDWR | O_CLOEXEC));
  const Descriptor file(::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_EQ(::ftruncate(file.get(), size), 0);
  EXPECT_FALSE(SealedMemory::map(device.get(), size));
  EXPECT_FALSE(SealedMemory::map(file.get(), size));
  EXPECT_FALSE(SealedMemory::map(-1, size));
}

TEST(SealedMemoryTest, LimitOfFilesLeavesTheProcessAlive) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{size - 1, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool isMade = SealedMemory::make(size).has_value();
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_FALSE(isMade);
}

}  // namespace
}  // namespace qbdkr::direct
