#import <QBDKRProductClientObjC/QBHPUploadByHelper.h>

#include <ClientComm/QBHPUploadByHelper.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

using Shared = qbdkr::QBHPUploadByHelper;

// One line for each call that fits into one.
// clang-format off
@implementation QBHPUploadByHelper

+ (instancetype)share {
  static id const shared = [[QBHPUploadByHelper alloc] init];
  return shared;
}

- (BOOL)checkJoinImproveExp { return Shared::share().checkJoinImproveExp(); }

- (int16_t)uploadLog:(NSString*)productID versionID:(NSString*)versionID email:(NSString*)email
    filePath:(NSString*)filePath title:(NSString*)title description:(NSString*)description {
  return Shared::share().uploadLog(TextOf(productID), TextOf(versionID), TextOf(email),
                                   TextOf(filePath), TextOf(title), TextOf(description));
}

- (int16_t)uploadUserFile:(NSString*)productID versionID:(NSString*)versionID email:(NSString*)email
    filePath:(NSString*)filePath title:(NSString*)title description:(NSString*)description {
  return Shared::share().uploadUserFile(TextOf(productID), TextOf(versionID), TextOf(email),
                                        TextOf(filePath), TextOf(title), TextOf(description));
}

- (int16_t)uploadProductFile:(NSString*)productID versionID:(NSString*)versionID
    email:(NSString*)email filePath:(NSString*)filePath title:(NSString*)title
    description:(NSString*)description {
  return Shared::share().uploadProductFile(TextOf(productID), TextOf(versionID), TextOf(email),
                                           TextOf(filePath), TextOf(title), TextOf(description));
}

- (int16_t)collectData:(NSString*)productID version:(NSString*)version
    collectionType:(int32_t)collectionType target:(NSString*)target keyID:(NSString*)keyID
    value:(NSString*)value {
  return Shared::share().collectData(TextOf(productID), TextOf(version),
                                     static_cast<qbdkr::CollectionType>(collectionType),
                                     TextOf(target), TextOf(keyID), TextOf(value));
}

- (int16_t)setProductCollectStatus:(NSString*)productID version:(NSString*)version
    status:(NSString*)status {
  return Shared::share().setProductCollectStatus(TextOf(productID), TextOf(version),
                                                 TextOf(status));
}

- (NSString*)productCollectStatus:(NSString*)productID version:(NSString*)version {
  return stringOf(Shared::share().productCollectStatus(TextOf(productID), TextOf(version)));
}

- (NSString*)regSuiteInfo:(NSString*)productID version:(NSString*)version {
  return stringOf(Shared::share().regSuiteInfo(TextOf(productID), TextOf(version)));
}

- (NSString*)unRegSuiteInfo:(NSString*)productID version:(NSString*)version {
  return stringOf(Shared::share().unRegSuiteInfo(TextOf(productID), TextOf(version)));
}

- (int16_t)directUploadData:(NSString*)productID version:(NSString*)version {
  return Shared::share().directUploadData(TextOf(productID), TextOf(version));
}

- (NSString*)netErrorPagePath:(NSString*)productID version:(NSString*)version {
  return stringOf(Shared::share().netErrorPagePath(TextOf(productID), TextOf(version)));
}

@end
// clang-format on
