#include <openssl/evp.h>

#include <array>
#include <stdexcept>

#include "SHA256.h"

namespace acme {
namespace {

void check(int result) {
  if (result != 1) throw std::runtime_error("OpenSSL computes no SHA-256");
}

}  // namespace

struct SHA256::State {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context{EVP_MD_CTX_new(),
                                                                  EVP_MD_CTX_free};
};

SHA256::SHA256() : state_(std::make_unique<State>()) {
  check(EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr));
}

SHA256::~SHA256() = default;

void SHA256::add(std::span<const unsigned char> bytes) {
  check(EVP_DigestUpdate(state_->context.get(), bytes.data(), bytes.size()));
}

std::string SHA256::digits() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned int size = 0;
  check(EVP_DigestFinal_ex(state_->context.get(), bytes.data(), &size));
  return hexadecimal(std::span(bytes.data(), size));
}

}  // namespace acme
