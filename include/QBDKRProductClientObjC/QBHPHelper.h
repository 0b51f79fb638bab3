#pragma once

#import <QBDKRProductClientObjC/QBHPSuiteInfo.h>

NS_ASSUME_NONNULL_BEGIN

// The facade of the framework. A host calls share once, on the thread whose run loop is to run the
// timer. From then on the helper agent is installed, launched and kept alive. The first share must
// not race with another one; every other call may be made on any thread.
QBHP_EXPORT
@interface QBHPHelper : NSObject {
 @private
  void* _own;
}

// Returns the facade of this process, made on first use, never deallocated. Installs and launches
// in the background. Blocks for the settings, 0.2 s at most while others hold them. Raises
// NSGenericException if no descriptors are left for a run loop.
+ (instancetype)share;

// Makes another facade, with a timer on the calling thread's run loop. The earlier one's timer then
// ticks without effect. Blocks and raises as share does.
- (instancetype)init;

// Records the time of the first start once, and starts a liveness check in the background. Blocks
// for the settings.
- (void)startHelper;

// Posts the stop request. The timer stays: its next tick starts a helper agent that still runs. A
// process that ends next calls flush: of QBHPAppleEventSender first.
- (void)stopHelper;

// Has no effect: the timer in use is not an object of Objective-C.
- (void)autoautoStartIntervaTimerMethod:(id QBHP_NULLABLE)timer;

// Post their request and return. The first and the three that collect read the settings.
- (void)directUploadData;
- (void)setProductCollectStatus:(BOOL)status;
- (void)customStringDataCollect:(NSString* QBHP_NULLABLE)target
                          value:(NSString* QBHP_NULLABLE)value;
- (void)autoCreatedIncreaseDataCollect:(NSString* QBHP_NULLABLE)target
                                   key:(NSString* QBHP_NULLABLE)key;
- (void)commIncreaseDataCollect:(NSString* QBHP_NULLABLE)target key:(NSString* QBHP_NULLABLE)key;
// Returns a status of QBHPAppleEventSender.
- (int16_t)uploadProductFile:(NSString* QBHP_NULLABLE)email
                    filePath:(NSString* QBHP_NULLABLE)filePath
                       title:(NSString* QBHP_NULLABLE)title
                 description:(NSString* QBHP_NULLABLE)description;

// Block until the helper agent answers or goes away, without limit.
- (BOOL)productCollectStatus;
- (NSString* QBHP_NULLABLE)netErrorPagePath;
// Raise NSRangeException for an answer of one field or two. Catch it: the answer comes from another
// process.
- (QBHPSuiteInfo*)unRegSuiteInfo;
- (QBHPSuiteInfo*)regSuiteInfo;

// Work without the helper agent. Block for files. A nil or empty identifier is ignored.
- (void)setDataCollectPID:(NSString* QBHP_NULLABLE)productID;
- (void)setTipsEnable:(BOOL)enable;

@end

NS_ASSUME_NONNULL_END
