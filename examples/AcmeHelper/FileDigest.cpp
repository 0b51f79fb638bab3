#include "FileDigest.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

namespace acme {
namespace {

constexpr std::size_t blockSize = 262'144;

std::runtime_error failure(const std::string& path) {
  return std::runtime_error(path + ": " + std::strerror(errno));
}

class File {
 public:
  // Not blocking: what a host names may be a pipe that nobody writes to.
  explicit File(const std::string& path)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (descriptor_ < 0) throw failure(path);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { ::close(descriptor_); }
  [[nodiscard]] int get() const { return descriptor_; }

 private:
  int descriptor_;
};

std::string hexadecimal(const unsigned char* bytes, std::size_t size) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += digits[bytes[i] / 16];
    text += digits[bytes[i] % 16];
  }
  return text;
}

}  // namespace

std::optional<FileDigest> digestOf(const std::string& path, const std::atomic<bool>& stop) {
  const File file(path);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throw failure(path);
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(path + ": not a file");

  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                        EVP_MD_CTX_free);
  bool sound = context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
  FileDigest digest;
  std::vector<unsigned char> block(blockSize);
  while (sound) {
    if (stop) return std::nullopt;
    const ssize_t size = ::read(file.get(), block.data(), block.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) throw failure(path);
    if (size == 0) break;
    digest.size += size;
    sound = EVP_DigestUpdate(context.get(), block.data(), static_cast<std::size_t>(size)) == 1;
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned int size = 0;
  if (!sound || EVP_DigestFinal_ex(context.get(), bytes.data(), &size) != 1) {
    throw std::runtime_error(path + ": no digest");
  }
  digest.sha256 = hexadecimal(bytes.data(), size);
  return digest;
}

}  // namespace acme
