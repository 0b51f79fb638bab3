#pragma once

// Core Foundation: https://developer.apple.com/documentation/corefoundation
// Where a page gives no number, no kind of enumeration or no constness, these are those of the
// bindings "objc2-core-foundation" 0.3.2, in some places of "core-foundation-sys".

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// "Mac types", with the sizes of the binding "MacTypes-sys" 2.0.0:
// https://developer.apple.com/documentation/kernel/mactypes_h
typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef UInt16 UniChar;
typedef UInt32 UTF32Char;
typedef SInt16 OSErr;
typedef SInt32 OSStatus;
typedef UInt32 FourCharCode;
typedef FourCharCode ResType;
typedef UInt32 OptionBits;
typedef long Size;
typedef void* SRefCon;
enum { noErr = 0 };

// Two 32-bit words, the high one first: "Inside Macintosh: Processes", Process Serial Number,
// https://developer.apple.com/library/archive/documentation/mac/Processes/Processes-34.html
// No page found says whether it is packed to 2 bytes like AEDesc; the layout is the same.
#pragma pack(push, 2)
struct ProcessSerialNumber {
  UInt32 highLongOfPSN;
  UInt32 lowLongOfPSN;
};
#pragma pack(pop)
typedef struct ProcessSerialNumber ProcessSerialNumber;

// https://developer.apple.com/documentation/corefoundation/cftyperef
typedef const void* CFTypeRef;
// https://developer.apple.com/documentation/corefoundation/cftypeid
typedef unsigned long CFTypeID;
// https://developer.apple.com/documentation/corefoundation/cfoptionflags
typedef unsigned long CFOptionFlags;
// https://developer.apple.com/documentation/corefoundation/cfhashcode
typedef unsigned long CFHashCode;
// https://developer.apple.com/documentation/corefoundation/cfindex
typedef long CFIndex;
// https://developer.apple.com/documentation/corefoundation/cfallocator
typedef const struct __CFAllocator* CFAllocatorRef;
// https://developer.apple.com/documentation/corefoundation/kcfallocatordefault
extern const CFAllocatorRef kCFAllocatorDefault;
// https://developer.apple.com/documentation/corefoundation/cfrange
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;
// https://developer.apple.com/documentation/corefoundation/cfrangemake(_:_:)
static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
  CFRange range;
  range.location = location;
  range.length = length;
  return range;
}
// https://developer.apple.com/documentation/corefoundation/cfgettypeid(_:)
CFTypeID CFGetTypeID(CFTypeRef object);
// https://developer.apple.com/documentation/corefoundation/cfretain
CFTypeRef CFRetain(CFTypeRef object);
// https://developer.apple.com/documentation/corefoundation/cfrelease
void CFRelease(CFTypeRef object);

// The opaque types. Each has a page of its own, named without "Ref":
// https://developer.apple.com/documentation/corefoundation/cfstring, .../cfmutablestring,
// .../cfarray, .../cfmutablearray, .../cfdictionary, .../cfmutabledictionary, .../cfdata,
// .../cfnumber, .../cfboolean, .../cfdate, .../cfurl, .../cfcharacterset, .../cflocale,
// .../cferror, .../cfbundle, .../cfpropertylist
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

// CFString, CFMutableString. CFSTR is a macro around a function that only it may call:
// https://developer.apple.com/documentation/corefoundation/cfstr
CFStringRef __CFStringMakeConstantString(const char* text);
#define CFSTR(text) __CFStringMakeConstantString("" text "")
// https://developer.apple.com/documentation/corefoundation/cfstringgettypeid()
CFTypeID CFStringGetTypeID(void);
// https://developer.apple.com/documentation/corefoundation/cfstringcreatewithcharacters(_:_:_:)
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef alloc, const UniChar* chars,
                                         CFIndex numChars);
// https://developer.apple.com/documentation/corefoundation/cfstringgetlength(_:)
CFIndex CFStringGetLength(CFStringRef theString);
// https://developer.apple.com/documentation/corefoundation/cfstringgetcharacters(_:_:_:)
void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer);
// https://developer.apple.com/documentation/corefoundation/cfstringcreatemutablecopy(_:_:_:)
CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef alloc, CFIndex maxLength,
                                             CFStringRef theString);
// https://developer.apple.com/documentation/corefoundation/cfstringlowercase(_:_:)
void CFStringLowercase(CFMutableStringRef theString, CFLocaleRef locale);
// https://developer.apple.com/documentation/corefoundation/cfstringnormalizationform
enum CFStringNormalizationForm : CFIndex { kCFStringNormalizationFormD = 0 };
// https://developer.apple.com/documentation/corefoundation/cfstringnormalize(_:_:)
void CFStringNormalize(CFMutableStringRef theString, CFStringNormalizationForm theForm);

// CFCharacterSet
// https://developer.apple.com/documentation/corefoundation/cfcharactersetpredefinedset
enum CFCharacterSetPredefinedSet : CFIndex {
  kCFCharacterSetDecimalDigit = 4,
  kCFCharacterSetNonBase = 8
};
// https://developer.apple.com/documentation/corefoundation/cfcharactersetgetpredefined(_:)
CFCharacterSetRef CFCharacterSetGetPredefined(CFCharacterSetPredefinedSet theSetIdentifier);
// https://developer.apple.com/documentation/corefoundation/cfcharactersetischaractermember(_:_:)
Boolean CFCharacterSetIsCharacterMember(CFCharacterSetRef theSet, UniChar theChar);
// https://developer.apple.com/documentation/corefoundation/cfcharactersetislongcharactermember(_:_:)
Boolean CFCharacterSetIsLongCharacterMember(CFCharacterSetRef theSet, UTF32Char theChar);

// CFArray, CFMutableArray
// https://developer.apple.com/documentation/corefoundation/cfarraycallbacks
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* value1, const void* value2);
} CFArrayCallBacks;
// https://developer.apple.com/documentation/corefoundation/kcftypearraycallbacks
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
// https://developer.apple.com/documentation/corefoundation/cfarraygettypeid()
CFTypeID CFArrayGetTypeID(void);
// https://developer.apple.com/documentation/corefoundation/cfarraygetcount(_:)
CFIndex CFArrayGetCount(CFArrayRef theArray);
// https://developer.apple.com/documentation/corefoundation/cfarraygetvalueatindex(_:_:)
const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);
// https://developer.apple.com/documentation/corefoundation/cfarraycreatemutable(_:_:_:)
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks);
// https://developer.apple.com/documentation/corefoundation/cfarrayappendvalue(_:_:)
void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value);

// CFDictionary, CFMutableDictionary
// https://developer.apple.com/documentation/corefoundation/cfdictionarykeycallbacks
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* value1, const void* value2);
  CFHashCode (*hash)(const void* value);
} CFDictionaryKeyCallBacks;
// https://developer.apple.com/documentation/corefoundation/cfdictionaryvaluecallbacks
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* value1, const void* value2);
} CFDictionaryValueCallBacks;
// https://developer.apple.com/documentation/corefoundation/kcftypedictionarykeycallbacks
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
// https://developer.apple.com/documentation/corefoundation/kcftypedictionaryvaluecallbacks
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
// https://developer.apple.com/documentation/corefoundation/cfdictionarygettypeid()
CFTypeID CFDictionaryGetTypeID(void);
// https://developer.apple.com/documentation/corefoundation/cfdictionarygetcount(_:)
CFIndex CFDictionaryGetCount(CFDictionaryRef theDict);
// https://developer.apple.com/documentation/corefoundation/cfdictionarygetkeysandvalues(_:_:_:)
void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys, const void** values);
// https://developer.apple.com/documentation/corefoundation/cfdictionarycreatemutable(_:_:_:_:)
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks);
// https://developer.apple.com/documentation/corefoundation/cfdictionarysetvalue(_:_:_:)
void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value);

// CFData
// https://developer.apple.com/documentation/corefoundation/cfdatagettypeid()
CFTypeID CFDataGetTypeID(void);
// https://developer.apple.com/documentation/corefoundation/cfdatacreate(_:_:_:)
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
// https://developer.apple.com/documentation/corefoundation/cfdatagetbyteptr(_:)
const UInt8* CFDataGetBytePtr(CFDataRef theData);
// https://developer.apple.com/documentation/corefoundation/cfdatagetlength(_:)
CFIndex CFDataGetLength(CFDataRef theData);

// CFNumber, CFBoolean
// https://developer.apple.com/documentation/corefoundation/cfnumbertype
enum CFNumberType : CFIndex { kCFNumberSInt64Type = 4, kCFNumberDoubleType = 13 };
// https://developer.apple.com/documentation/corefoundation/kcfbooleantrue
extern const CFBooleanRef kCFBooleanTrue;
// https://developer.apple.com/documentation/corefoundation/kcfbooleanfalse
extern const CFBooleanRef kCFBooleanFalse;
// https://developer.apple.com/documentation/corefoundation/cfbooleangettypeid()
CFTypeID CFBooleanGetTypeID(void);
// https://developer.apple.com/documentation/corefoundation/cfbooleangetvalue(_:)
Boolean CFBooleanGetValue(CFBooleanRef boolean);
// https://developer.apple.com/documentation/corefoundation/cfnumbergettypeid()
CFTypeID CFNumberGetTypeID(void);
// https://developer.apple.com/documentation/corefoundation/cfnumbercreate(_:_:_:)
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType, const void* valuePtr);
// https://developer.apple.com/documentation/corefoundation/cfnumbergetvalue(_:_:_:)
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);
// https://developer.apple.com/documentation/corefoundation/cfnumberisfloattype(_:)
Boolean CFNumberIsFloatType(CFNumberRef number);
// https://developer.apple.com/documentation/corefoundation/cfcomparisonresult
enum CFComparisonResult : CFIndex { kCFCompareEqualTo = 0 };
// https://developer.apple.com/documentation/corefoundation/cfnumbercompare(_:_:_:)
CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber, void* context);

// CFDate, "Time Utilities"
// https://developer.apple.com/documentation/corefoundation/cftimeinterval
typedef double CFTimeInterval;
// https://developer.apple.com/documentation/corefoundation/cfabsolutetime
typedef CFTimeInterval CFAbsoluteTime;
// https://developer.apple.com/documentation/corefoundation/cfdategettypeid()
CFTypeID CFDateGetTypeID(void);
// https://developer.apple.com/documentation/corefoundation/cfdatecreate(_:_:)
CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at);
// https://developer.apple.com/documentation/corefoundation/cfdategetabsolutetime(_:)
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate);
// https://developer.apple.com/documentation/corefoundation/cfabsolutetimegetcurrent()
CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

// CFPropertyList
// https://developer.apple.com/documentation/corefoundation/cfpropertylistformat
enum CFPropertyListFormat : CFIndex { kCFPropertyListXMLFormat_v1_0 = 100 };
// https://developer.apple.com/documentation/corefoundation/cfpropertylistmutabilityoptions
enum : CFOptionFlags { kCFPropertyListImmutable = 0 };
// https://developer.apple.com/documentation/corefoundation/cfpropertylistcreatewithdata(_:_:_:_:_:)
CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error);
// https://developer.apple.com/documentation/corefoundation/cfpropertylistcreatedata(_:_:_:_:_:)
CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags options,
                                   CFErrorRef* error);

// "Preferences Utilities"
// https://developer.apple.com/documentation/corefoundation/kcfpreferencesanyhost
extern const CFStringRef kCFPreferencesAnyHost;
// https://developer.apple.com/documentation/corefoundation/kcfpreferencescurrentuser
extern const CFStringRef kCFPreferencesCurrentUser;
// https://developer.apple.com/documentation/corefoundation/cfpreferencescopyvalue(_:_:_:_:)
CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID,
                                         CFStringRef userName, CFStringRef hostName);
// https://developer.apple.com/documentation/corefoundation/cfpreferencescopymultiple(_:_:_:_:)
CFDictionaryRef CFPreferencesCopyMultiple(CFArrayRef keysToFetch, CFStringRef applicationID,
                                          CFStringRef userName, CFStringRef hostName);
// https://developer.apple.com/documentation/corefoundation/cfpreferencessetvalue(_:_:_:_:_:)
void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef applicationID,
                           CFStringRef userName, CFStringRef hostName);
// https://developer.apple.com/documentation/corefoundation/cfpreferencessynchronize(_:_:_:)
Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName,
                                 CFStringRef hostName);

// CFURL
// https://developer.apple.com/documentation/corefoundation/cfurlcreatefromfilesystemrepresentation(_:_:_:_:)
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean isDirectory);
// https://developer.apple.com/documentation/corefoundation/cfurlgetfilesystemrepresentation(_:_:_:_:)
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex maxBufLen);

// CFBundle
// https://developer.apple.com/documentation/corefoundation/cfbundlegetmainbundle()
CFBundleRef CFBundleGetMainBundle(void);
// https://developer.apple.com/documentation/corefoundation/cfbundlecreate(_:_:)
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);
// https://developer.apple.com/documentation/corefoundation/cfbundlecopybundleurl(_:)
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
// https://developer.apple.com/documentation/corefoundation/cfbundlecopyexecutableurl(_:)
CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);
// https://developer.apple.com/documentation/corefoundation/cfbundlecopyresourceurl(_:_:_:_:)
CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                 CFStringRef resourceType, CFStringRef subDirName);
// https://developer.apple.com/documentation/corefoundation/cfbundlegetinfodictionary(_:)
CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);
// https://developer.apple.com/documentation/corefoundation/cfbundlegetlocalinfodictionary(_:)
CFDictionaryRef CFBundleGetLocalInfoDictionary(CFBundleRef bundle);
// https://developer.apple.com/documentation/corefoundation/cfbundlecopyinfodictionaryindirectory(_:)
CFDictionaryRef CFBundleCopyInfoDictionaryInDirectory(CFURLRef bundleURL);
// https://developer.apple.com/documentation/corefoundation/cfbundlecopybundlelocalizations(_:)
CFArrayRef CFBundleCopyBundleLocalizations(CFBundleRef bundle);
// https://developer.apple.com/documentation/corefoundation/cfbundlecopypreferredlocalizationsfromarray(_:)
CFArrayRef CFBundleCopyPreferredLocalizationsFromArray(CFArrayRef locArray);

// CFRunLoop, CFRunLoopSource, CFRunLoopTimer
// https://developer.apple.com/documentation/corefoundation/cfrunloop
typedef struct __CFRunLoop* CFRunLoopRef;
// https://developer.apple.com/documentation/corefoundation/cfrunloopsource
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
// https://developer.apple.com/documentation/corefoundation/cfrunlooptimer
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;
// https://developer.apple.com/documentation/corefoundation/cfrunloopmode
typedef CFStringRef CFRunLoopMode;
// https://developer.apple.com/documentation/corefoundation/cfrunlooprunresult
enum CFRunLoopRunResult : SInt32 { kCFRunLoopRunFinished = 1, kCFRunLoopRunHandledSource = 4 };
// https://developer.apple.com/documentation/corefoundation/kcfrunloopdefaultmode
extern const CFRunLoopMode kCFRunLoopDefaultMode;
// https://developer.apple.com/documentation/corefoundation/kcfrunloopcommonmodes
extern const CFRunLoopMode kCFRunLoopCommonModes;
// https://developer.apple.com/documentation/corefoundation/cfrunloopgetcurrent()
CFRunLoopRef CFRunLoopGetCurrent(void);
// https://developer.apple.com/documentation/corefoundation/cfrunloopgetmain()
CFRunLoopRef CFRunLoopGetMain(void);
// https://developer.apple.com/documentation/corefoundation/cfrunloopruninmode(_:_:_:)
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled);
// https://developer.apple.com/documentation/corefoundation/cfrunloopaddsource(_:_:_:)
void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode);
// https://developer.apple.com/documentation/corefoundation/cfrunloopsourceinvalidate(_:)
void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);
// https://developer.apple.com/documentation/corefoundation/cfrunloopaddtimer(_:_:_:)
void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);
// https://developer.apple.com/documentation/corefoundation/cfrunloopgetnexttimerfiredate(_:_:)
CFAbsoluteTime CFRunLoopGetNextTimerFireDate(CFRunLoopRef rl, CFRunLoopMode mode);

// https://developer.apple.com/documentation/corefoundation/cfrunlooptimercontext
typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} CFRunLoopTimerContext;
// https://developer.apple.com/documentation/corefoundation/cfrunlooptimercallback
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);
// https://developer.apple.com/documentation/corefoundation/cfrunlooptimercreate(_:_:_:_:_:_:_:)
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context);
// https://developer.apple.com/documentation/corefoundation/cfrunlooptimerinvalidate(_:)
void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);
// https://developer.apple.com/documentation/corefoundation/cfrunlooptimersettolerance(_:_:)
void CFRunLoopTimerSetTolerance(CFRunLoopTimerRef timer, CFTimeInterval tolerance);

// CFFileDescriptor
// https://developer.apple.com/documentation/corefoundation/cffiledescriptor
typedef struct __CFFileDescriptor* CFFileDescriptorRef;
// https://developer.apple.com/documentation/corefoundation/cffiledescriptornativedescriptor
typedef int CFFileDescriptorNativeDescriptor;
// https://developer.apple.com/documentation/corefoundation/kcffiledescriptorreadcallback
enum : CFOptionFlags { kCFFileDescriptorReadCallBack = 1UL << 0 };
// https://developer.apple.com/documentation/corefoundation/cffiledescriptorcallback
typedef void (*CFFileDescriptorCallBack)(CFFileDescriptorRef f, CFOptionFlags callBackTypes,
                                         void* info);
// Its callbacks take and give "void*", not "const void*" as those of the other contexts do:
// https://developer.apple.com/documentation/corefoundation/cffiledescriptorcontext
typedef struct {
  CFIndex version;
  void* info;
  void* (*retain)(void* info);
  void (*release)(void* info);
  CFStringRef (*copyDescription)(void* info);
} CFFileDescriptorContext;
// https://developer.apple.com/documentation/corefoundation/cffiledescriptorcreate(_:_:_:_:_:)
CFFileDescriptorRef CFFileDescriptorCreate(CFAllocatorRef allocator,
                                           CFFileDescriptorNativeDescriptor fd,
                                           Boolean closeOnInvalidate,
                                           CFFileDescriptorCallBack callout,
                                           const CFFileDescriptorContext* context);
// https://developer.apple.com/documentation/corefoundation/cffiledescriptorenablecallbacks(_:_:)
void CFFileDescriptorEnableCallBacks(CFFileDescriptorRef f, CFOptionFlags callBackTypes);
// https://developer.apple.com/documentation/corefoundation/cffiledescriptorinvalidate(_:)
void CFFileDescriptorInvalidate(CFFileDescriptorRef f);
// https://developer.apple.com/documentation/corefoundation/cffiledescriptorcreaterunloopsource(_:_:_:)
CFRunLoopSourceRef CFFileDescriptorCreateRunLoopSource(CFAllocatorRef allocator,
                                                       CFFileDescriptorRef f, CFIndex order);

// CFMachPort, and what it needs of Mach: https://developer.apple.com/documentation/kernel/mach
typedef unsigned int mach_port_t;
#define MACH_PORT_NULL 0
typedef struct mach_msg_header mach_msg_header_t;
// https://developer.apple.com/documentation/corefoundation/cfmachport
typedef struct __CFMachPort* CFMachPortRef;
// https://developer.apple.com/documentation/corefoundation/cfmachportcontext
typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} CFMachPortContext;
// https://developer.apple.com/documentation/corefoundation/cfmachportcallback
typedef void (*CFMachPortCallBack)(CFMachPortRef port, void* msg, CFIndex size, void* info);
// https://developer.apple.com/documentation/corefoundation/cfmachportcreatewithport(_:_:_:_:_:)
CFMachPortRef CFMachPortCreateWithPort(CFAllocatorRef allocator, mach_port_t portNum,
                                       CFMachPortCallBack callout, CFMachPortContext* context,
                                       Boolean* shouldFreeInfo);
// https://developer.apple.com/documentation/corefoundation/cfmachportcreaterunloopsource(_:_:_:)
CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef allocator, CFMachPortRef port,
                                                 CFIndex order);

#ifdef __cplusplus
}
#endif
