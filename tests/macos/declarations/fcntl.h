#pragma once
#pragma GCC system_header

// The additions of macOS to POSIX: fcntl(2),
// https://developer.apple.com/library/archive/documentation/System/Conceptual/ManPages_iPhoneOS/man2/fcntl.2.html
// The numbers are those of the binding "libc" for Apple's systems, and the fields those of its
// fstore_t.

#include_next <fcntl.h>
#include <sys/types.h>

// fcntl(2)
#define F_PREALLOCATE 42
#define F_FULLFSYNC 51
#define F_ALLOCATEALL 0x00000004
#define F_PEOFPOSMODE 3

// fcntl(2)
typedef struct fstore {
  unsigned int fst_flags;
  int fst_posmode;
  off_t fst_offset;
  off_t fst_length;
  off_t fst_bytesalloc;
} fstore_t;
