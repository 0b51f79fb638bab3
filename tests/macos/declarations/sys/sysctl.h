#pragma once

// sysctl(3):
// https://developer.apple.com/library/archive/documentation/System/Conceptual/ManPages_iPhoneOS/man3/sysctl.3.html
// The numbers are those of the binding "libc" for Apple's systems.
// The records of the process table: "ExternProc", "Eproc", "Ucred" and "KinfoProc" of the package
// golang.org/x/sys/unix for darwin on arm64 and amd64, which agree. Only the fields that are read
// have names here; the rest is padding.

#include <stddef.h>
#include <sys/types.h>

// sysctl(3)
#define CTL_KERN 1
#define KERN_PROC 14
#define KERN_PROC_ALL 0
// "P_comm" of "ExternProc" has one more, for the end of the text.
#define MAXCOMLEN 16

// "ExternProc"
struct extern_proc {
  char roomBefore[40] __attribute__((aligned(8)));
  pid_t p_pid;
  char roomBetween[199];
  char p_comm[MAXCOMLEN + 1];
  char roomBehind[36];
};

// "Ucred"
struct _ucred {
  int cr_ref;
  uid_t cr_uid;
  short cr_ngroups;
  gid_t cr_groups[16];
};

// "Eproc"
struct eproc {
  char roomBefore[120] __attribute__((aligned(8)));
  struct _ucred e_ucred;
  char roomBehind[156];
};

// "KinfoProc"
struct kinfo_proc {
  struct extern_proc kp_proc;
  struct eproc kp_eproc;
};

#ifdef __cplusplus
extern "C" {
#endif
// sysctl(3)
int sysctl(int* name, unsigned int namelen, void* oldp, size_t* oldlenp, void* newp, size_t newlen);
#ifdef __cplusplus
}
#endif
