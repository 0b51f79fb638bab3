#pragma once

// Application Services, "Process Manager":
// https://developer.apple.com/documentation/applicationservices/process_manager
// Deprecated since macOS 10.9: the documentation of the bindings "objc2-application-services" 0.3.2
// says so too.

#include <CoreServices/CoreServices.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum : UInt32 { kProcessDictionaryIncludeAllInformationMask = 0xFFFFFFFF };

__attribute__((deprecated)) OSStatus GetProcessForPID(pid_t pid, ProcessSerialNumber* psn);
__attribute__((deprecated)) CFDictionaryRef ProcessInformationCopyDictionary(
    const ProcessSerialNumber* PSN, UInt32 infoToReturn);

#ifdef __cplusplus
}
#endif
