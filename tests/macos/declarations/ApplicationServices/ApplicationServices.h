#pragma once

// Application Services, "Process Manager":
// https://developer.apple.com/documentation/applicationservices/process_manager
// Deprecated since macOS 10.9: the documentation of the bindings "objc2-application-services" 0.3.2
// says so too, and has both calls as they are here.

#include <CoreServices/CoreServices.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// No page found gives the number. It is -1, an int, in the metadata of PyObjC's bindings; the call
// takes the 32 bits of it without a sign.
enum { kProcessDictionaryIncludeAllInformationMask = -1 };

// https://developer.apple.com/documentation/applicationservices/1501069-getprocessforpid
__attribute__((deprecated)) OSStatus GetProcessForPID(pid_t pid, ProcessSerialNumber* psn);
// ProcessInformationCopyDictionary: the page of the Process Manager and the bindings named above
__attribute__((deprecated)) CFDictionaryRef ProcessInformationCopyDictionary(
    const ProcessSerialNumber* PSN, UInt32 infoToReturn);

#ifdef __cplusplus
}
#endif
