#include "Platform/Events/DBus/SealedMemory.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace qbdkr::direct {
namespace {

// From Linux 6.3 on, which complains of memory without it.
constexpr unsigned notExecutable = 0x0008;  // MFD_NOEXEC_SEAL
// The last of these keeps others from writing, and everybody from giving the memory back: a read of
// what was given back could end the process.
constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL | F_SEAL_FUTURE_WRITE;

Descriptor makeFile() {
  constexpr unsigned flags = MFD_CLOEXEC | MFD_ALLOW_SEALING;
  Descriptor made(::memfd_create("events", flags | notExecutable));
  if (!made && errno == EINVAL) made = Descriptor(::memfd_create("events", flags));
  return made;
}

// A file beyond this limit ends the process by a signal.
bool mayBeMade(std::size_t size) {
  rlimit most{};
  return ::getrlimit(RLIMIT_FSIZE, &most) == 0 && size <= most.rlim_cur;
}

// Gives a file all of its memory. Memory that was only set aside counts as a hole.
bool fill(int file, std::size_t size) {
  constexpr std::array<char, 4096> zeros{};
  std::size_t done = 0;
  while (done < size) {
    const auto count =
        ::pwrite(file, zeros.data(), std::min(zeros.size(), size - done), static_cast<off_t>(done));
    if (count > 0) done += static_cast<std::size_t>(count);
    if (count == 0 || (count < 0 && errno != EINTR)) return false;
  }
  return true;
}

// Tells whether a file has all of its memory, and keeps it. Huge pages, which can run out later,
// are of another file system.
bool isSealed(int descriptor, std::size_t size) {
  const int present = ::fcntl(descriptor, F_GET_SEALS);
  struct stat status {};
  struct statfs system {};
  return present >= 0 && (present & seals) == seals && ::fstat(descriptor, &status) == 0 &&
         ::fstatfs(descriptor, &system) == 0 && system.f_type == TMPFS_MAGIC &&
         status.st_size == static_cast<off_t>(size) &&
         ::lseek(descriptor, 0, SEEK_HOLE) == status.st_size;
}

}  // namespace

std::optional<SealedMemory> SealedMemory::make(std::size_t size) {
  if (!mayBeMade(size)) return std::nullopt;
  Descriptor file = makeFile();
  if (!file || !fill(file.get(), size)) return std::nullopt;
  void* const address = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (address == MAP_FAILED) return std::nullopt;
  SealedMemory memory(address, size, std::move(file));
  if (::fcntl(memory.descriptor_.get(), F_ADD_SEALS, seals) != 0) return std::nullopt;
  return memory;
}

std::optional<SealedMemory> SealedMemory::map(int descriptor, std::size_t size) {
  if (!isSealed(descriptor, size)) return std::nullopt;
  void* const address = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0);
  if (address == MAP_FAILED) return std::nullopt;
  return SealedMemory(address, size, {});
}

SealedMemory::~SealedMemory() {
  if (address_ != nullptr) ::munmap(address_, size_);
}

}  // namespace qbdkr::direct
