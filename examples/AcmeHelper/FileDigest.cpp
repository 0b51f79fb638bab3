#include "FileDigest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <span>
#include <stdexcept>
#include <vector>

#include "SHA256.h"

namespace acme {
namespace {

constexpr std::size_t blockSize = 262'144;
constexpr off_t largestFile = off_t{64} << 30U;  // 64 GiB

std::runtime_error failure(const std::string& path) {
  return std::runtime_error(path + ": " + std::strerror(errno));
}

class File {
 public:
  // Non-blocking: a host may name a pipe without a writer.
  explicit File(const std::string& path)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    if (descriptor_ < 0) throw failure(path);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { ::close(descriptor_); }
  [[nodiscard]] int get() const { return descriptor_; }

 private:
  int descriptor_;
};

}  // namespace

std::optional<FileDigest> digestOf(const std::string& path, const std::atomic<bool>& stop) {
  const File file(path);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throw failure(path);
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(path + ": not a file");
  if (status.st_size > largestFile) throw std::runtime_error(path + ": too large");

  SHA256 hash;
  FileDigest digest;
  std::vector<unsigned char> block(blockSize);
  while (!stop) {
    const ssize_t size = ::read(file.get(), block.data(), block.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) throw failure(path);
    if (size == 0 || digest.size >= status.st_size) {  // later additions do not count
      digest.sha256 = hash.digits();
      return digest;
    }
    digest.size += size;
    hash.add(std::span(block.data(), static_cast<std::size_t>(size)));
  }
  return std::nullopt;
}

}  // namespace acme
