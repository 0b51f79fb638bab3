#import <QBDKRProductClientObjC/QBHPHelperCommunicate.h>

#include <ClientComm/QBHPVersion.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

namespace {

qbdkr::QBHPHelperCommunicate& communicator() { return qbdkr::QBHPHelperCommunicate::share(); }

}  // namespace

// One line for each call that fits into one.
// clang-format off
@implementation QBHPHelperCommunicate

+ (instancetype)share {
  static id const shared = [[QBHPHelperCommunicate alloc] init];
  return shared;
}

- (instancetype)init {
  raising([] { communicator(); });
  return [super init];
}

- (void)processHelper { communicator().processHelper(); }
- (int16_t)autoRestartHelper { return communicator().autoRestartHelper(); }
- (int16_t)restartHelperInThread { return communicator().restartHelperInThread(); }
- (BOOL)getDefaultHelperServerOpen { return communicator().getDefaultHelperServerOpen(); }
- (BOOL)isHelperSeverNotOpen:(int16_t)status { return communicator().isHelperSeverNotOpen(status); }
- (int16_t)startHelper { return communicator().startHelper(); }
- (int16_t)stopHelper { return communicator().stopHelper(); }
- (int16_t)isAliveHelper { return communicator().isAliveHelper(); }
- (NSString*)clientID { return stringOf(communicator().clientID()); }
- (NSString*)clientIDFormHelper { return stringOf(communicator().clientIDFormHelper()); }
- (void)willHelperExit { communicator().willHelperExit(); }

- (void)didCheckServerOpen:(BOOL)open :(NSError*)error {
  (void)error;  // of which the communicator takes no notice
  communicator().didCheckServerOpen(open, nullptr);
}

- (void)extractHelper { communicator().extractHelper(); }
- (BOOL)launchHelepr { return communicator().launchHelepr(); }

- (NSString*)getVersionByBundlePath:(NSString*)bundlePath {
  return stringOf(communicator().getVersionByBundlePath(TextOf(bundlePath)));
}

- (NSString*)appPath:(NSString*)directory {
  return stringOf(communicator().appPath(TextOf(directory)));
}

- (int)typeOfCharacter:(NSString*)character {
  return raising([&] { return static_cast<int>(qbdkr::typeOfCharacter(utf16Of(character))); });
}

- (NSArray*)splitVersionString:(NSString*)version {
  NSMutableArray* const runs = [NSMutableArray array];
  for (const std::u16string& run : qbdkr::splitVersionString(TextOf(version)))
    [runs addObject:stringOf(std::u16string_view(run))];
  return runs;
}

- (NSInteger)compareVersion:(NSString*)version toVersion:(NSString*)toVersion {
  return qbdkr::compareVersion(TextOf(version), TextOf(toVersion));
}

- (void)synthesizeUserDefault { communicator().synthesizeUserDefault(); }
- (NSString*)firstStartPID { return stringOf(communicator().firstStartPID()); }
- (NSString*)collectDataPID { return stringOf(communicator().collectDataPID()); }

- (void)setCollectDataPID:(NSString*)productID {
  communicator().setCollectDataPID(TextOf(productID));
}

- (void)initDataCollectionPath:(NSString*)base {
  communicator().initDataCollectionPath(TextOf(base));
}

- (NSString*)searchCurrentStringsFilePath:(NSString*)bundlePath {
  return stringOf(communicator().searchCurrentStringsFilePath(TextOf(bundlePath)));
}

- (NSString*)searchPlistFilePath:(NSString*)bundlePath {
  return stringOf(communicator().searchPlistFilePath(TextOf(bundlePath)));
}

- (void)saveEnableADToStringsFile:(BOOL)enable { communicator().saveEnableADToStringsFile(enable); }

- (void)saveTipsEnableTostringsFile:(BOOL)enable {
  communicator().saveTipsEnableTostringsFile(enable);
}

- (void)saveEnableADToPlistFile:(BOOL)enable { communicator().saveEnableADToPlistFile(enable); }
- (void)saveTipsEnableToPlistFile:(BOOL)enable { communicator().saveTipsEnableToPlistFile(enable); }
- (void)saveEnableAD { communicator().saveEnableAD(); }
- (void)saveTipsEnable { communicator().saveTipsEnable(); }
- (void)setEnableAD:(BOOL)enable { communicator().setEnableAD(enable); }
- (void)setTipsEnable:(BOOL)enable { communicator().setTipsEnable(enable); }
- (int16_t)showHelper { return communicator().showHelper(); }
- (int16_t)hideHelper { return communicator().hideHelper(); }
- (int16_t)productReadyToUpgrade:(BOOL)ready { return communicator().productReadyToUpgrade(ready); }
- (int16_t)productUpgrade { return communicator().productUpgrade(); }

- (void)setProductUpgradeDelegate:(id<QBHPProductUpgradeCallBackDelegate>)delegate {
  [[QBHPUpgradeByHelper share] setProductUpgradeDelegate:delegate];
}

- (id<QBHPProductUpgradeCallBackDelegate>)getProductUpgradeDelegate {
  return [(id)[QBHPUpgradeByHelper share] getProductUpgradeDelegate];
}

- (int16_t)uploadProductFile:(NSString*)email filePath:(NSString*)filePath title:(NSString*)title
    description:(NSString*)description {
  return communicator().uploadProductFile(TextOf(email), TextOf(filePath), TextOf(title),
                                          TextOf(description));
}

- (int16_t)uploadUserFile:(NSString*)email filePath:(NSString*)filePath title:(NSString*)title
    description:(NSString*)description {
  return communicator().uploadUserFile(TextOf(email), TextOf(filePath), TextOf(title),
                                       TextOf(description));
}

- (int16_t)uploadLogByEmail:(NSString*)email filePath:(NSString*)filePath title:(NSString*)title
    description:(NSString*)description {
  return communicator().uploadLogByEmail(TextOf(email), TextOf(filePath), TextOf(title),
                                         TextOf(description));
}

- (int16_t)directUploadData { return communicator().directUploadData(); }

- (int16_t)customStringDataCollect:(NSString*)target value:(NSString*)value {
  return communicator().customStringDataCollect(TextOf(target), TextOf(value));
}

- (int16_t)autoCreatedIncreaseDataCollect:(NSString*)target key:(NSString*)key {
  return communicator().autoCreatedIncreaseDataCollect(TextOf(target), TextOf(key));
}

- (int16_t)commIncreaseDataCollect:(NSString*)target key:(NSString*)key {
  return communicator().commIncreaseDataCollect(TextOf(target), TextOf(key));
}

- (BOOL)productCollectStatus { return communicator().productCollectStatus(); }

- (int16_t)setProductCollectStatus:(BOOL)status {
  return communicator().setProductCollectStatus(status);
}

- (NSString*)netErrorPagePath { return stringOf(communicator().netErrorPagePath()); }

- (QBHPSuiteInfo*)unRegSuiteInfo {
  return raising([] { return suiteInfoOf(communicator().unRegSuiteInfo()); });
}

- (QBHPSuiteInfo*)regSuiteInfo {
  return raising([] { return suiteInfoOf(communicator().regSuiteInfo()); });
}

- (int16_t)checkForHeleprMessage { return communicator().checkForHeleprMessage(); }

- (int16_t)customerserviceByEmail:(NSString*)email attachment:(NSString*)attachment {
  return communicator().customerserviceByEmail(TextOf(email), TextOf(attachment));
}

@end
// clang-format on
