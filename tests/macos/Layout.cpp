// Where the published layouts of macOS on 64-bit processors put what is read and written there.

#include <ApplicationServices/ApplicationServices.h>
#include <CoreServices/CoreServices.h>
#include <sys/event.h>
#include <sys/sysctl.h>

#include <cstddef>

static_assert(sizeof(AEDesc) == 12 && offsetof(AEDesc, dataHandle) == 4);
static_assert(sizeof(LSLaunchURLSpec) == 36 && offsetof(LSLaunchURLSpec, asyncRefCon) == 28);
static_assert(sizeof(ProcessSerialNumber) == 8);
static_assert(sizeof(struct kevent) == 32 && offsetof(struct kevent, data) == 16);

static_assert(sizeof(kinfo_proc) == 648 && sizeof(extern_proc) == 296);
static_assert(offsetof(kinfo_proc, kp_proc.p_pid) == 40);
static_assert(offsetof(kinfo_proc, kp_proc.p_comm) == 243);
static_assert(offsetof(kinfo_proc, kp_eproc.e_ucred.cr_uid) == 420);
