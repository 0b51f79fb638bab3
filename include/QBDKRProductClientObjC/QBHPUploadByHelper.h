#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>

NS_ASSUME_NONNULL_BEGIN

// Hands files and usage data to the helper agent, and asks it about the product. Does not check
// arguments. Calls that return a status post, and return one of QBHPAppleEventSender at once. Those
// that return a text block until the helper agent answers or goes away, without limit; nil if the
// answer is empty or missing. Any thread.
QBHP_EXPORT
@interface QBHPUploadByHelper : QBHPAppEventBase

+ (instancetype)share;

// Always NO.
@property(nonatomic, readonly) BOOL checkJoinImproveExp;

// Upload a log, a file of the user, a file of the product. The path is passed on unchanged.
- (int16_t)uploadLog:(NSString* QBHP_NULLABLE)productID
           versionID:(NSString* QBHP_NULLABLE)versionID
               email:(NSString* QBHP_NULLABLE)email
            filePath:(NSString* QBHP_NULLABLE)filePath
               title:(NSString* QBHP_NULLABLE)title
         description:(NSString* QBHP_NULLABLE)description;
- (int16_t)uploadUserFile:(NSString* QBHP_NULLABLE)productID
                versionID:(NSString* QBHP_NULLABLE)versionID
                    email:(NSString* QBHP_NULLABLE)email
                 filePath:(NSString* QBHP_NULLABLE)filePath
                    title:(NSString* QBHP_NULLABLE)title
              description:(NSString* QBHP_NULLABLE)description;
- (int16_t)uploadProductFile:(NSString* QBHP_NULLABLE)productID
                   versionID:(NSString* QBHP_NULLABLE)versionID
                       email:(NSString* QBHP_NULLABLE)email
                    filePath:(NSString* QBHP_NULLABLE)filePath
                       title:(NSString* QBHP_NULLABLE)title
                 description:(NSString* QBHP_NULLABLE)description;

// Collects a value, or counts, under a target and a key. The type is 3 for a common counter, 4 for
// one that is made when it is missing, 5 for a text; any other is sent as "".
- (int16_t)collectData:(NSString* QBHP_NULLABLE)productID
               version:(NSString* QBHP_NULLABLE)version
        collectionType:(int32_t)collectionType
                target:(NSString* QBHP_NULLABLE)target
                 keyID:(NSString* QBHP_NULLABLE)keyID
                 value:(NSString* QBHP_NULLABLE)value;

// Switches the collection of usage data: "1" or "0".
- (int16_t)setProductCollectStatus:(NSString* QBHP_NULLABLE)productID
                           version:(NSString* QBHP_NULLABLE)version
                            status:(NSString* QBHP_NULLABLE)status;

// Returns whether usage data is collected: "1" means yes.
- (NSString* QBHP_NULLABLE)productCollectStatus:(NSString* QBHP_NULLABLE)productID
                                        version:(NSString* QBHP_NULLABLE)version;

// Return the page for a suite, registered or not: URL, width and height, joined by "###".
- (NSString* QBHP_NULLABLE)regSuiteInfo:(NSString* QBHP_NULLABLE)productID
                                version:(NSString* QBHP_NULLABLE)version;
- (NSString* QBHP_NULLABLE)unRegSuiteInfo:(NSString* QBHP_NULLABLE)productID
                                  version:(NSString* QBHP_NULLABLE)version;

// Uploads the collected data now.
- (int16_t)directUploadData:(NSString* QBHP_NULLABLE)productID
                    version:(NSString* QBHP_NULLABLE)version;

// Returns the path of a page to show without a network.
- (NSString* QBHP_NULLABLE)netErrorPagePath:(NSString* QBHP_NULLABLE)productID
                                    version:(NSString* QBHP_NULLABLE)version;

@end

NS_ASSUME_NONNULL_END
