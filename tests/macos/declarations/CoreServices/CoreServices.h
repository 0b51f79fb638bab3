#pragma once

// Core Services: https://developer.apple.com/documentation/coreservices
// Numbers and packing: the documentation of the bindings "objc2-core-services" 0.3.2 and
// "core-services" 0.2.0 (AEDesc and LSLaunchURLSpec are packed to 2 bytes there).

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

// "Apple Event Manager", AEDesc
typedef ResType DescType;
typedef FourCharCode AEKeyword;
typedef FourCharCode AEEventClass;
typedef FourCharCode AEEventID;
typedef SInt16 AEReturnID;
typedef SInt32 AETransactionID;
typedef SInt32 AESendMode;
typedef struct OpaqueAEDataStorageType* AEDataStorageType;
typedef AEDataStorageType* AEDataStorage;
#pragma pack(push, 2)
struct AEDesc {
  DescType descriptorType;
  AEDataStorage dataHandle;
};
#pragma pack(pop)
typedef struct AEDesc AEDesc;
typedef AEDesc AEDescList;
typedef AEDesc AEAddressDesc;
typedef AEDesc AppleEvent;

// "Descriptor Type Constants", "Keyword Attribute Constants", "Keyword Parameter Constants",
// "Event Class Constants", "ID Constants for the AECreateAppleEvent Function": four characters
// each.
enum {
  typeNull = 0x6E756C6C,                 // null
  typeWildCard = 0x2A2A2A2A,             // ****
  typeAEList = 0x6C697374,               // list
  typeUnicodeText = 0x75747874,          // utxt
  typeUTF8Text = 0x75746638,             // utf8
  typeProcessSerialNumber = 0x70736E20,  // psn
  typeKernelProcessID = 0x6B706964,      // kpid
  typeApplicationBundleID = 0x62756E64,  // bund
  keyDirectObject = 0x2D2D2D2D,          // ----
  keyAddressAttr = 0x61646472,           // addr
  kCoreEventClass = 0x61657674           // aevt
};
enum { kAutoGenerateReturnID = -1, kAnyTransactionID = 0 };
// AESendMode, "Timeout Constants"
enum { kAENoReply = 0x00000001, kAEQueueReply = 0x00000002, kAEWaitReply = 0x00000003 };
enum { kAEDefaultTimeout = -1, kNoTimeOut = -2 };
// "Apple Event Manager Result Codes", "Process Manager Result Codes"
enum {
  paramErr = -50,
  procNotFound = -600,
  connectionInvalid = -609,
  errAEEventNotHandled = -1708,
  errAETimeout = -1712,
  errAEEventNotPermitted = -1743,
  errAEEventFailed = -10000
};

void AEInitializeDesc(AEDesc* desc);
OSErr AECreateDesc(DescType typeCode, const void* dataPtr, Size dataSize, AEDesc* result);
OSErr AEDisposeDesc(AEDesc* theAEDesc);
OSErr AECoerceDesc(const AEDesc* theAEDesc, DescType toType, AEDesc* result);
Size AEGetDescDataSize(const AEDesc* theAEDesc);
OSErr AEGetDescData(const AEDesc* theAEDesc, void* dataPtr, Size maximumSize);
OSErr AECreateList(const void* factoringPtr, Size factoredSize, Boolean isRecord,
                   AEDescList* resultList);
OSErr AECountItems(const AEDescList* theAEDescList, long* theCount);
OSErr AEPutDesc(AEDescList* theAEDescList, long index, const AEDesc* theAEDesc);
OSErr AEGetNthDesc(const AEDescList* theAEDescList, long index, DescType desiredType,
                   AEKeyword* theAEKeyword, AEDesc* result);
OSErr AECreateAppleEvent(AEEventClass theAEEventClass, AEEventID theAEEventID,
                         const AEAddressDesc* target, AEReturnID returnID,
                         AETransactionID transactionID, AppleEvent* result);
OSErr AEPutParamDesc(AppleEvent* theAppleEvent, AEKeyword theAEKeyword, const AEDesc* theAEDesc);
OSErr AEGetParamDesc(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword, DescType desiredType,
                     AEDesc* result);
OSErr AEGetAttributeDesc(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword,
                         DescType desiredType, AEDesc* result);

// AEEventHandlerProcPtr, NewAEEventHandlerUPP, AEInstallEventHandler
typedef OSErr (*AEEventHandlerProcPtr)(const AppleEvent* theAppleEvent, AppleEvent* reply,
                                       SRefCon handlerRefcon);
typedef AEEventHandlerProcPtr AEEventHandlerUPP;
AEEventHandlerUPP NewAEEventHandlerUPP(AEEventHandlerProcPtr userRoutine);
OSErr AEInstallEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                            AEEventHandlerUPP handler, SRefCon handlerRefcon, Boolean isSysHandler);
OSErr AERemoveEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                           AEEventHandlerUPP handler, Boolean isSysHandler);

// "Working With Lower Level Apple Event Functions":
// https://developer.apple.com/documentation/coreservices/1442994-aesendmessage,
// .../1449736-aegetregisteredmachport, .../1444387-aeprocessmessage
OSStatus AESendMessage(const AppleEvent* event, AppleEvent* reply, AESendMode sendMode,
                       long timeOutInTicks);
mach_port_t AEGetRegisteredMachPort(void);
OSStatus AEProcessMessage(mach_msg_header_t* header);

// "Launch Services", LSLaunchURLSpec, LSLaunchFlags:
// https://developer.apple.com/documentation/coreservices/lslaunchflags
typedef OptionBits LSLaunchFlags;
enum : OptionBits {
  kLSLaunchDefaults = 0x00000001,
  kLSLaunchDontAddToRecents = 0x00000100,
  kLSLaunchDontSwitch = 0x00000200,
  kLSLaunchAsync = 0x00010000
};
#pragma pack(push, 2)
struct LSLaunchURLSpec {
  CFURLRef appURL;
  CFArrayRef itemURLs;
  const AEDesc* passThruParams;
  LSLaunchFlags launchFlags;
  void* asyncRefCon;
};
#pragma pack(pop)
typedef struct LSLaunchURLSpec LSLaunchURLSpec;
OSStatus LSOpenFromURLSpec(const LSLaunchURLSpec* inLaunchSpec, CFURLRef* outLaunchedURL);

#ifdef __cplusplus
}
#endif
