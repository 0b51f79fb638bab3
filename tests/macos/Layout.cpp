// Compares the structs that are read and written with the published layouts of macOS on 64-bit
// processors.

#include <ApplicationServices/ApplicationServices.h>
#include <CommonCrypto/CommonDigest.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <fcntl.h>
#include <sys/event.h>
#include <sys/sysctl.h>
#include <time.h>

#include <cstddef>

// The basic types: long and pointers have 64 bits, int has 32.
static_assert(sizeof(CFIndex) == 8 && sizeof(CFTypeRef) == 8 && sizeof(CFOptionFlags) == 8);
static_assert(sizeof(UniChar) == 2 && sizeof(Boolean) == 1 && sizeof(CFAbsoluteTime) == 8);
static_assert(sizeof(OSErr) == 2 && sizeof(OSStatus) == 4 && sizeof(Size) == 8);
static_assert(sizeof(OptionBits) == 4 && sizeof(mach_port_t) == 4 && sizeof(off_t) == 8);
static_assert(sizeof(CFRunLoopRunResult) == 4 && sizeof(CFPropertyListFormat) == 8);
static_assert(sizeof(UTF32Char) == 4 && sizeof(CFComparisonResult) == 8);
static_assert(sizeof(CFNumberType) == 8 && sizeof(CFStringNormalizationForm) == 8);

// "objc2-core-services" 0.3.2: repr(C, packed(2))
static_assert(sizeof(AEDesc) == 12 && alignof(AEDesc) == 2);
static_assert(offsetof(AEDesc, descriptorType) == 0 && offsetof(AEDesc, dataHandle) == 4);
static_assert(sizeof(LSLaunchURLSpec) == 36 && alignof(LSLaunchURLSpec) == 2);
static_assert(offsetof(LSLaunchURLSpec, appURL) == 0 && offsetof(LSLaunchURLSpec, itemURLs) == 8);
static_assert(offsetof(LSLaunchURLSpec, passThruParams) == 16);
static_assert(offsetof(LSLaunchURLSpec, launchFlags) == 24);
static_assert(offsetof(LSLaunchURLSpec, asyncRefCon) == 28);

// "Inside Macintosh: Processes": 64 bits, the high ones first
static_assert(sizeof(ProcessSerialNumber) == 8);
static_assert(offsetof(ProcessSerialNumber, highLongOfPSN) == 0);
static_assert(offsetof(ProcessSerialNumber, lowLongOfPSN) == 4);

// "objc2-core-foundation" 0.3.2: repr(C), a CFIndex and pointers
template <class Context>
constexpr bool isContext() {
  return sizeof(Context) == 40 && offsetof(Context, version) == 0 && offsetof(Context, info) == 8 &&
         offsetof(Context, retain) == 16 && offsetof(Context, release) == 24 &&
         offsetof(Context, copyDescription) == 32;
}
static_assert(isContext<CFRunLoopTimerContext>() && isContext<CFFileDescriptorContext>());
static_assert(isContext<CFMachPortContext>());

template <class CallBacks>
constexpr bool areCallBacks() {
  return offsetof(CallBacks, version) == 0 && offsetof(CallBacks, retain) == 8 &&
         offsetof(CallBacks, release) == 16 && offsetof(CallBacks, copyDescription) == 24 &&
         offsetof(CallBacks, equal) == 32;
}
static_assert(areCallBacks<CFArrayCallBacks>() && sizeof(CFArrayCallBacks) == 40);
static_assert(areCallBacks<CFDictionaryValueCallBacks>());
static_assert(sizeof(CFDictionaryValueCallBacks) == 40);
static_assert(areCallBacks<CFDictionaryKeyCallBacks>());
static_assert(sizeof(CFDictionaryKeyCallBacks) == 48 &&
              offsetof(CFDictionaryKeyCallBacks, hash) == 40);
static_assert(sizeof(CFRange) == 16 && offsetof(CFRange, length) == 8);

// "Kevent_t" and "Timespec" of golang.org/x/sys/unix for darwin on arm64
static_assert(sizeof(struct kevent) == 32 && offsetof(struct kevent, ident) == 0);
static_assert(offsetof(struct kevent, filter) == 8 && offsetof(struct kevent, flags) == 10);
static_assert(offsetof(struct kevent, fflags) == 12 && offsetof(struct kevent, data) == 16);
static_assert(offsetof(struct kevent, udata) == 24);
static_assert(sizeof(timespec) == 16 && offsetof(timespec, tv_nsec) == 8);

// "Fstore_t" of the same, and fstore_t of the binding "libc" 0.2.96
static_assert(sizeof(fstore_t) == 32 && offsetof(fstore_t, fst_flags) == 0);
static_assert(offsetof(fstore_t, fst_posmode) == 4 && offsetof(fstore_t, fst_offset) == 8);
static_assert(offsetof(fstore_t, fst_length) == 16 && offsetof(fstore_t, fst_bytesalloc) == 24);

// "KinfoProc" of the same, SizeofKinfoProc = 0x288
static_assert(sizeof(kinfo_proc) == 0x288 && sizeof(extern_proc) == 296 && sizeof(eproc) == 352);
static_assert(offsetof(kinfo_proc, kp_proc.p_pid) == 40);
static_assert(offsetof(kinfo_proc, kp_proc.p_comm) == 243);
static_assert(sizeof(kinfo_proc{}.kp_proc.p_comm) == 17);
static_assert(offsetof(kinfo_proc, kp_eproc.e_ucred.cr_uid) == 420);

// {CC_SHA256state_st=[2I][8I][16I]}
static_assert(sizeof(CC_SHA256_CTX) == 104 && alignof(CC_SHA256_CTX) == 4);
static_assert(offsetof(CC_SHA256_CTX, hash) == 8 && offsetof(CC_SHA256_CTX, wbuf) == 40);
