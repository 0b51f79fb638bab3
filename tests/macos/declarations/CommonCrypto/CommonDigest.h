#pragma once

// CC_SHA256(3cc):
// https://developer.apple.com/library/archive/documentation/System/Conceptual/ManPages_iPhoneOS/man3/CC_SHA256.3cc.html
// The fields of the context are nobody's business; its size is that of published bindings.

#include <stdint.h>

#define CC_SHA256_DIGEST_LENGTH 32

#ifdef __cplusplus
extern "C" {
#endif
typedef uint32_t CC_LONG;
typedef struct CC_SHA256state_st {
  CC_LONG words[26];
} CC_SHA256_CTX;
int CC_SHA256_Init(CC_SHA256_CTX* c);
int CC_SHA256_Update(CC_SHA256_CTX* c, const void* data, CC_LONG len);
int CC_SHA256_Final(unsigned char* md, CC_SHA256_CTX* c);
#ifdef __cplusplus
}
#endif
