// Proves that the declarations catch a slip: this file compiles, but not with one of these macros.

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <sys/sysctl.h>

#include <cstddef>

OSErr onEvent(const AppleEvent*, AppleEvent*, SRefCon);
int keptInInt(const kinfo_proc& process);
bool isDeprecated(ProcessSerialNumber* number);

#ifdef WRONG_ARGUMENT_TYPE
OSErr describe(AEDesc* made) { return AECreateDesc("bund", "x", 1, made); }
#else
OSErr describe(AEDesc* made) { return AECreateDesc(typeApplicationBundleID, "x", 1, made); }
#endif

#ifdef WRONG_ORDER_OF_ARGUMENTS
OSStatus send(const AppleEvent* event, AppleEvent* reply) {
  return AESendMessage(reply, event, kAENoReply, kAEDefaultTimeout);
}
#else
OSStatus send(const AppleEvent* event, AppleEvent* reply) {
  return AESendMessage(event, reply, kAENoReply, kAEDefaultTimeout);
}
#endif

#ifdef WRONG_HANDLER
OSErr onOther(const AppleEvent*, SRefCon);
AEEventHandlerUPP handler() { return NewAEEventHandlerUPP(onOther); }
#else
AEEventHandlerUPP handler() { return NewAEEventHandlerUPP(onEvent); }
#endif

#ifdef MISSING_ARGUMENT
bool store(CFStringRef domain) {
  return CFPreferencesSynchronize(domain, kCFPreferencesCurrentUser) != 0;
}
#else
bool store(CFStringRef domain) {
  return CFPreferencesSynchronize(domain, kCFPreferencesCurrentUser, kCFPreferencesAnyHost) != 0;
}
#endif

#ifdef WRONG_FIELD
LSLaunchFlags flags(const LSLaunchURLSpec& launch) { return launch.flags; }
#else
LSLaunchFlags flags(const LSLaunchURLSpec& launch) { return launch.launchFlags; }
#endif

#ifdef UNKNOWN_CONSTANT
extern const CFPropertyListFormat form = kCFPropertyListXMLFormat;
#else
extern const CFPropertyListFormat form = kCFPropertyListXMLFormat_v1_0;
#endif

#ifdef NUMBER_FOR_AN_ENUMERATION
CFNumberRef number(const double* real) { return CFNumberCreate(kCFAllocatorDefault, 13, real); }
#else
CFNumberRef number(const double* real) {
  return CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, real);
}
#endif

#ifdef CHANGED_SIGN
std::size_t sizeOf(CFDataRef data) { return CFDataGetLength(data); }
#else
std::size_t sizeOf(CFDataRef data) { return static_cast<std::size_t>(CFDataGetLength(data)); }
#endif

#ifdef NARROWED_COUNT
int lengthOf(CFDataRef data) { return CFDataGetLength(data); }
#else
CFIndex lengthOf(CFDataRef data) { return CFDataGetLength(data); }
#endif

#ifdef DEPRECATED_WITHOUT_A_WORD
bool isRunning(ProcessSerialNumber* number) { return GetProcessForPID(1, number) == noErr; }
#endif
