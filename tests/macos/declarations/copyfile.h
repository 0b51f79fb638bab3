#pragma once

// copyfile(3):
// https://developer.apple.com/library/archive/documentation/System/Conceptual/ManPages_iPhoneOS/man3/copyfile.3.html

#include <stdint.h>

// copyfile(3) names them; the numbers are those of published bindings, which agree.
#define COPYFILE_ACL (1 << 0)
#define COPYFILE_STAT (1 << 1)
#define COPYFILE_XATTR (1 << 2)
#define COPYFILE_DATA (1 << 3)
#define COPYFILE_ALL (COPYFILE_ACL | COPYFILE_STAT | COPYFILE_XATTR | COPYFILE_DATA)
#define COPYFILE_EXCL (1 << 17)
#define COPYFILE_NOFOLLOW_SRC (1 << 18)
#define COPYFILE_STATE_STATUS_CB 6
#define COPYFILE_STATE_STATUS_CTX 7
#define COPYFILE_STATE_COPIED 8
#define COPYFILE_COPY_DATA 4
#define COPYFILE_PROGRESS 4
#define COPYFILE_CONTINUE 0

#ifdef __cplusplus
extern "C" {
#endif
// copyfile(3)
typedef struct _copyfile_state* copyfile_state_t;
typedef uint32_t copyfile_flags_t;
int copyfile(const char* from, const char* to, copyfile_state_t state, copyfile_flags_t flags);
copyfile_state_t copyfile_state_alloc(void);
int copyfile_state_free(copyfile_state_t state);
int copyfile_state_get(copyfile_state_t state, uint32_t flag, void* result);
int copyfile_state_set(copyfile_state_t state, uint32_t flag, const void* value);
#ifdef __cplusplus
}
#endif
