#include <CommonCrypto/CommonDigest.h>

#include <array>

#include "SHA256.h"

namespace acme {

struct SHA256::State {
  CC_SHA256_CTX context{};
};

// These calls cannot fail: they always return 1.
SHA256::SHA256() : state_(std::make_unique<State>()) { CC_SHA256_Init(&state_->context); }

SHA256::~SHA256() = default;

void SHA256::add(std::span<const unsigned char> bytes) {
  CC_SHA256_Update(&state_->context, bytes.data(), static_cast<CC_LONG>(bytes.size()));
}

std::string SHA256::digits() {
  std::array<unsigned char, CC_SHA256_DIGEST_LENGTH> bytes{};
  CC_SHA256_Final(bytes.data(), &state_->context);
  return hexadecimal(bytes);
}

}  // namespace acme
