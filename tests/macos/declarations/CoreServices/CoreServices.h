#pragma once

// Core Services: https://developer.apple.com/documentation/coreservices
// Where a page gives no number or no kind of enumeration, these are those of the bindings
// "objc2-core-services" 0.3.2. AEDesc is packed to 2 bytes there, and LSLaunchURLSpec there and in
// "core-services" 0.1.1.

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

// The small types. Each has a page of its own, of its name:
// https://developer.apple.com/documentation/coreservices/desctype, .../aekeyword, .../aeeventclass,
// .../aeeventid, .../aereturnid, .../aetransactionid, .../aesendmode, .../aedatastoragetype,
// .../aedatastorage
typedef ResType DescType;
typedef FourCharCode AEKeyword;
typedef FourCharCode AEEventClass;
typedef FourCharCode AEEventID;
typedef SInt16 AEReturnID;
typedef SInt32 AETransactionID;
typedef SInt32 AESendMode;
typedef struct OpaqueAEDataStorageType* AEDataStorageType;
typedef AEDataStorageType* AEDataStorage;

// https://developer.apple.com/documentation/coreservices/aedesc, and the names that it has
// besides: .../aedesclist, .../aeaddressdesc, .../appleevent
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

// Constants. Each has a page of its own, of its name in lower case; four characters are a number,
// the first one highest.
// "Descriptor Type Constants", "Event Class Constants":
// https://developer.apple.com/documentation/coreservices/typenull ... .../kcoreeventclass
enum : DescType {
  typeNull = 0x6E756C6C,                 // null
  typeWildCard = 0x2A2A2A2A,             // ****
  typeAEList = 0x6C697374,               // list
  typeUnicodeText = 0x75747874,          // utxt
  typeUTF8Text = 0x75746638,             // utf8
  typeSInt16 = 0x73686F72,               // shor
  typeSInt32 = 0x6C6F6E67,               // long
  typeProcessSerialNumber = 0x70736E20,  // psn
  typeMachPort = 0x706F7274,             // port
  typeKernelProcessID = 0x6B706964,      // kpid
  typeApplicationBundleID = 0x62756E64,  // bund
  kCoreEventClass = 0x61657674           // aevt
};
// "Keyword Parameter Constants", "Keyword Attribute Constants":
// https://developer.apple.com/documentation/coreservices/keydirectobject, .../keyerrornumber,
// .../keyaddressattr, .../keyreturnidattr,
// .../apple_events/1571648-keyreplyportattr
enum : AEKeyword {
  keyDirectObject = 0x2D2D2D2D,  // ----
  keyErrorNumber = 0x6572726E,   // errn
  keyAddressAttr = 0x61646472,   // addr
  keyReturnIDAttr = 0x72746964,  // rtid
  keyReplyPortAttr = 0x72657070  // repp
};
// "Event ID Constants": https://developer.apple.com/documentation/coreservices/kaeanswer
enum : AEEventID {
  kAEAnswer = 0x616E7372  // ansr
};
// "ID Constants for the AECreateAppleEvent Function":
// https://developer.apple.com/documentation/coreservices/kautogeneratereturnid,
// .../kanytransactionid
enum { kAutoGenerateReturnID = -1, kAnyTransactionID = 0 };
// AESendMode: https://developer.apple.com/documentation/coreservices/kaenoreply,
// .../kaequeuereply, .../kaewaitreply
enum { kAENoReply = 0x00000001, kAEQueueReply = 0x00000002, kAEWaitReply = 0x00000003 };
// "Timeout Constants": https://developer.apple.com/documentation/coreservices/kaedefaulttimeout,
// .../knotimeout
enum { kAEDefaultTimeout = -1, kNoTimeOut = -2 };
// Result codes: https://developer.apple.com/documentation/coreservices/paramerr, .../procnotfound,
// .../connectioninvalid, .../erraeeventnothandled, .../erraetimeout, .../erraeeventnotpermitted,
// .../erraeeventfailed. The numbers of the first two and of the one for permission are in the
// binding named above; all but that one are in the documentation of "rb-scpt" 1.0.4, by their
// meaning.
enum {
  paramErr = -50,
  procNotFound = -600,
  connectionInvalid = -609,
  errAEEventNotHandled = -1708,
  errAETimeout = -1712,
  errAEEventNotPermitted = -1743,
  errAEEventFailed = -10000
};

// https://developer.apple.com/documentation/coreservices/1446047-aeinitializedesc
void AEInitializeDesc(AEDesc* desc);
// https://developer.apple.com/documentation/coreservices/1448535-aecreatedesc
OSErr AECreateDesc(DescType typeCode, const void* dataPtr, Size dataSize, AEDesc* result);
// https://developer.apple.com/documentation/coreservices/1444208-aedisposedesc
OSErr AEDisposeDesc(AEDesc* theAEDesc);
// https://developer.apple.com/documentation/coreservices/1446519-aecoercedesc
OSErr AECoerceDesc(const AEDesc* theAEDesc, DescType toType, AEDesc* result);
// https://developer.apple.com/documentation/coreservices/1450119-aegetdescdatasize
Size AEGetDescDataSize(const AEDesc* theAEDesc);
// https://developer.apple.com/documentation/coreservices/1444427-aegetdescdata
OSErr AEGetDescData(const AEDesc* theAEDesc, void* dataPtr, Size maximumSize);
// https://developer.apple.com/documentation/coreservices/1448643-aecreatelist
OSErr AECreateList(const void* factoringPtr, Size factoredSize, Boolean isRecord,
                   AEDescList* resultList);
// https://developer.apple.com/documentation/coreservices/1449533-aecountitems
OSErr AECountItems(const AEDescList* theAEDescList, long* theCount);
// https://developer.apple.com/documentation/coreservices/1450093-aeputdesc
OSErr AEPutDesc(AEDescList* theAEDescList, long index, const AEDesc* theAEDesc);
// https://developer.apple.com/documentation/coreservices/1448326-aegetnthdesc
OSErr AEGetNthDesc(const AEDescList* theAEDescList, long index, DescType desiredType,
                   AEKeyword* theAEKeyword, AEDesc* result);
// https://developer.apple.com/documentation/coreservices/1448525-aecreateappleevent
OSErr AECreateAppleEvent(AEEventClass theAEEventClass, AEEventID theAEEventID,
                         const AEAddressDesc* target, AEReturnID returnID,
                         AETransactionID transactionID, AppleEvent* result);
// https://developer.apple.com/documentation/coreservices/1447576-aeputparamdesc
OSErr AEPutParamDesc(AppleEvent* theAppleEvent, AEKeyword theAEKeyword, const AEDesc* theAEDesc);
// https://developer.apple.com/documentation/coreservices/1445940-aeputattributeptr
OSErr AEPutAttributePtr(AppleEvent* theAppleEvent, AEKeyword theAEKeyword, DescType typeCode,
                        const void* dataPtr, Size dataSize);
// https://developer.apple.com/documentation/coreservices/1449233-aegetparamdesc
OSErr AEGetParamDesc(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword, DescType desiredType,
                     AEDesc* result);
// https://developer.apple.com/documentation/coreservices/1450314-aegetattributedesc
OSErr AEGetAttributeDesc(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword,
                         DescType desiredType, AEDesc* result);

// https://developer.apple.com/documentation/coreservices/aeeventhandlerprocptr
typedef OSErr (*AEEventHandlerProcPtr)(const AppleEvent* theAppleEvent, AppleEvent* reply,
                                       SRefCon handlerRefcon);
// https://developer.apple.com/documentation/coreservices/aeeventhandlerupp
typedef AEEventHandlerProcPtr AEEventHandlerUPP;
// https://developer.apple.com/documentation/coreservices/1446862-newaeeventhandlerupp
AEEventHandlerUPP NewAEEventHandlerUPP(AEEventHandlerProcPtr userRoutine);
// https://developer.apple.com/documentation/coreservices/1448596-aeinstalleventhandler
OSErr AEInstallEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                            AEEventHandlerUPP handler, SRefCon handlerRefcon, Boolean isSysHandler);
// https://developer.apple.com/documentation/coreservices/1445239-aeremoveeventhandler
OSErr AERemoveEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                           AEEventHandlerUPP handler, Boolean isSysHandler);

// https://developer.apple.com/documentation/coreservices/1442994-aesendmessage
OSStatus AESendMessage(const AppleEvent* event, AppleEvent* reply, AESendMode sendMode,
                       long timeOutInTicks);
// https://developer.apple.com/documentation/coreservices/1449736-aegetregisteredmachport
mach_port_t AEGetRegisteredMachPort(void);
// https://developer.apple.com/documentation/coreservices/1444387-aeprocessmessage
OSStatus AEProcessMessage(mach_msg_header_t* header);

// Launch Services
// https://developer.apple.com/documentation/coreservices/lslaunchflags
typedef OptionBits LSLaunchFlags;
enum : OptionBits {
  kLSLaunchDontAddToRecents = 0x00000100,
  kLSLaunchDontSwitch = 0x00000200,
  kLSLaunchAsync = 0x00010000
};
// https://developer.apple.com/documentation/coreservices/lslaunchurlspec
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
// https://developer.apple.com/documentation/coreservices/1441986-lsopenfromurlspec
OSStatus LSOpenFromURLSpec(const LSLaunchURLSpec* inLaunchSpec, CFURLRef* outLaunchedURL);

#ifdef __cplusplus
}
#endif
