#pragma once

// Core Foundation: https://developer.apple.com/documentation/corefoundation
// Numbers: the documentation of the bindings "objc2-core-foundation" and "core-foundation-sys".

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// "Mac types": https://developer.apple.com/documentation/kernel/mactypes_h
typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef UInt16 UniChar;
typedef SInt16 OSErr;
typedef SInt32 OSStatus;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef FourCharCode ResType;
typedef UInt32 OptionBits;
typedef long Size;
typedef void* SRefCon;
enum { noErr = 0 };
// ProcessSerialNumber: "Process Manager", two 32-bit words; packed to 2 bytes as all of these.
#pragma pack(push, 2)
struct ProcessSerialNumber {
  UInt32 highLongOfPSN;
  UInt32 lowLongOfPSN;
};
#pragma pack(pop)
typedef struct ProcessSerialNumber ProcessSerialNumber;

// "Base Utilities", CFType, CFAllocator
typedef const void* CFTypeRef;
typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef long CFIndex;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;
static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
  CFRange range;
  range.location = location;
  range.length = length;
  return range;
}
extern const CFAllocatorRef kCFAllocatorDefault;
CFTypeID CFGetTypeID(CFTypeRef object);
CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);

typedef const struct __CFString* CFStringRef;
typedef struct __CFString* CFMutableStringRef;
typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFDate* CFDateRef;
typedef const struct __CFURL* CFURLRef;
typedef const struct __CFCharacterSet* CFCharacterSetRef;
typedef const struct __CFLocale* CFLocaleRef;
typedef struct __CFError* CFErrorRef;
typedef struct __CFBundle* CFBundleRef;
typedef CFTypeRef CFPropertyListRef;

// CFString
CFStringRef __CFStringMakeConstantString(const char* text);
#define CFSTR(text) __CFStringMakeConstantString("" text "")
CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef alloc, const UniChar* chars,
                                         CFIndex numChars);
CFIndex CFStringGetLength(CFStringRef theString);
void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer);
CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef alloc, CFIndex maxLength,
                                             CFStringRef theString);
void CFStringLowercase(CFMutableStringRef theString, CFLocaleRef locale);
// CFStringNormalizationForm
typedef CFIndex CFStringNormalizationForm;
enum : CFIndex { kCFStringNormalizationFormD = 0 };
void CFStringNormalize(CFMutableStringRef theString, CFStringNormalizationForm theForm);

// CFCharacterSet, CFCharacterSetPredefinedSet
typedef CFIndex CFCharacterSetPredefinedSet;
enum : CFIndex { kCFCharacterSetDecimalDigit = 4 };
CFCharacterSetRef CFCharacterSetGetPredefined(CFCharacterSetPredefinedSet theSetIdentifier);
Boolean CFCharacterSetIsCharacterMember(CFCharacterSetRef theSet, UniChar theChar);

// CFArray
typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* value1, const void* value2);
typedef struct {
  CFIndex version;
  CFArrayRetainCallBack retain;
  CFArrayReleaseCallBack release;
  CFArrayCopyDescriptionCallBack copyDescription;
  CFArrayEqualCallBack equal;
} CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
CFTypeID CFArrayGetTypeID(void);
CFIndex CFArrayGetCount(CFArrayRef theArray);
const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks);
void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value);

// CFDictionary
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* value1, const void* value2);
  CFHashCode (*hash)(const void* value);
} CFDictionaryKeyCallBacks;
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* value1, const void* value2);
} CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
CFTypeID CFDictionaryGetTypeID(void);
CFIndex CFDictionaryGetCount(CFDictionaryRef theDict);
void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys, const void** values);
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks);
void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value);

// CFData
CFTypeID CFDataGetTypeID(void);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
const UInt8* CFDataGetBytePtr(CFDataRef theData);
CFIndex CFDataGetLength(CFDataRef theData);

// CFNumber, CFNumberType, CFBoolean
typedef CFIndex CFNumberType;
enum : CFIndex { kCFNumberSInt64Type = 4, kCFNumberDoubleType = 13 };
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);
CFTypeID CFNumberGetTypeID(void);
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType, const void* valuePtr);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);
Boolean CFNumberIsFloatType(CFNumberRef number);

// CFDate, "Time Utilities"
typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;
CFTypeID CFDateGetTypeID(void);
CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate);
CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

// CFPropertyList, CFPropertyListFormat, CFPropertyListMutabilityOptions
enum CFPropertyListFormat : CFIndex {
  kCFPropertyListOpenStepFormat = 1,
  kCFPropertyListXMLFormat_v1_0 = 100,
  kCFPropertyListBinaryFormat_v1_0 = 200
};
typedef CFOptionFlags CFPropertyListMutabilityOptions;
enum : CFOptionFlags { kCFPropertyListImmutable = 0 };
CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error);
CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags options,
                                   CFErrorRef* error);

// "Preferences Utilities"
extern const CFStringRef kCFPreferencesAnyHost;
extern const CFStringRef kCFPreferencesCurrentUser;
CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID,
                                         CFStringRef userName, CFStringRef hostName);
CFDictionaryRef CFPreferencesCopyMultiple(CFArrayRef keysToFetch, CFStringRef applicationID,
                                          CFStringRef userName, CFStringRef hostName);
void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef applicationID,
                           CFStringRef userName, CFStringRef hostName);
Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName,
                                 CFStringRef hostName);

// CFURL
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean isDirectory);
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex maxBufLen);

// CFBundle. The names of the information keys are there as well, as global variables.
extern const CFStringRef kCFBundleIdentifierKey;
extern const CFStringRef kCFBundleNameKey;
extern const CFStringRef kCFBundleVersionKey;
extern const CFStringRef kCFBundleExecutableKey;
CFBundleRef CFBundleGetMainBundle(void);
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);
CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                 CFStringRef resourceType, CFStringRef subDirName);
CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);
CFDictionaryRef CFBundleGetLocalInfoDictionary(CFBundleRef bundle);
CFDictionaryRef CFBundleCopyInfoDictionaryInDirectory(CFURLRef bundleURL);
CFArrayRef CFBundleCopyBundleLocalizations(CFBundleRef bundle);
CFArrayRef CFBundleCopyPreferredLocalizationsFromArray(CFArrayRef locArray);

// CFRunLoop, CFRunLoopRunResult
typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;
typedef CFStringRef CFRunLoopMode;
enum CFRunLoopRunResult : SInt32 {
  kCFRunLoopRunFinished = 1,
  kCFRunLoopRunStopped = 2,
  kCFRunLoopRunTimedOut = 3,
  kCFRunLoopRunHandledSource = 4
};
extern const CFRunLoopMode kCFRunLoopDefaultMode;
extern const CFRunLoopMode kCFRunLoopCommonModes;
CFRunLoopRef CFRunLoopGetCurrent(void);
CFRunLoopRef CFRunLoopGetMain(void);
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled);
void CFRunLoopStop(CFRunLoopRef rl);
void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);
void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);
void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);
CFAbsoluteTime CFRunLoopGetNextTimerFireDate(CFRunLoopRef rl, CFRunLoopMode mode);

// CFRunLoopTimer
typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} CFRunLoopTimerContext;
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context);
void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);
void CFRunLoopTimerSetTolerance(CFRunLoopTimerRef timer, CFTimeInterval tolerance);

// CFFileDescriptor
typedef struct __CFFileDescriptor* CFFileDescriptorRef;
typedef int CFFileDescriptorNativeDescriptor;
enum : CFOptionFlags { kCFFileDescriptorReadCallBack = 1UL << 0 };
typedef void (*CFFileDescriptorCallBack)(CFFileDescriptorRef f, CFOptionFlags callBackTypes,
                                         void* info);
typedef struct {
  CFIndex version;
  void* info;
  void* (*retain)(void* info);
  void (*release)(void* info);
  CFStringRef (*copyDescription)(void* info);
} CFFileDescriptorContext;
CFFileDescriptorRef CFFileDescriptorCreate(CFAllocatorRef allocator,
                                           CFFileDescriptorNativeDescriptor fd,
                                           Boolean closeOnInvalidate,
                                           CFFileDescriptorCallBack callout,
                                           const CFFileDescriptorContext* context);
void CFFileDescriptorEnableCallBacks(CFFileDescriptorRef f, CFOptionFlags callBackTypes);
void CFFileDescriptorInvalidate(CFFileDescriptorRef f);
CFRunLoopSourceRef CFFileDescriptorCreateRunLoopSource(CFAllocatorRef allocator,
                                                       CFFileDescriptorRef f, CFIndex order);

// CFMachPort, and what it needs of Mach: https://developer.apple.com/documentation/kernel/mach
typedef unsigned int mach_port_t;
#define MACH_PORT_NULL 0
typedef struct mach_msg_header mach_msg_header_t;
typedef struct __CFMachPort* CFMachPortRef;
typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} CFMachPortContext;
typedef void (*CFMachPortCallBack)(CFMachPortRef port, void* msg, CFIndex size, void* info);
CFMachPortRef CFMachPortCreateWithPort(CFAllocatorRef allocator, mach_port_t portNum,
                                       CFMachPortCallBack callout, CFMachPortContext* context,
                                       Boolean* shouldFreeInfo);
CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef allocator, CFMachPortRef port,
                                                 CFIndex order);

#ifdef __cplusplus
}
#endif
