#pragma once

// CC_SHA256(3cc):
// https://developer.apple.com/library/archive/documentation/System/Conceptual/ManPages_iPhoneOS/man3/CC_SHA256.3cc.html

#include <stdint.h>

#define CC_SHA256_DIGEST_LENGTH 32

#ifdef __cplusplus
extern "C" {
#endif
// The page gives neither the type nor the fields. CC_LONG has 32 bits and the fields are these in
// published type encodings of the struct, {CC_SHA256state_st=[2I][8I][16I]}. The binding
// "commoncrypto-sys" declares a larger struct.
typedef uint32_t CC_LONG;
typedef struct CC_SHA256state_st {
  CC_LONG count[2];
  CC_LONG hash[8];
  CC_LONG wbuf[16];
} CC_SHA256_CTX;

// CC_SHA256(3cc)
int CC_SHA256_Init(CC_SHA256_CTX* c);
int CC_SHA256_Update(CC_SHA256_CTX* c, const void* data, CC_LONG len);
int CC_SHA256_Final(unsigned char* md, CC_SHA256_CTX* c);
#ifdef __cplusplus
}
#endif
