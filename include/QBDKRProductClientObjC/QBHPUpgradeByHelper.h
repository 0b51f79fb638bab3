#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>

NS_ASSUME_NONNULL_BEGIN

// Is asked whether the product is ready to be upgraded, on the main thread, under the dispatcher's
// lock; answers with productReadyToUpgrade:, at once or later.
@protocol QBHPProductUpgradeCallBackDelegate <NSObject>
@optional
// The error is nil if the question has no error code.
- (void)productWillUpgrade:(NSError* QBHP_NULLABLE)error;
@end

// Exchanges messages about an upgrade of the product. A question that arrives before the previous
// one is answered gets the answer "ignore". Each object of this class stands for the one service of
// the process. Requests post and return a status of QBHPAppleEventSender at once. Any thread.
QBHP_EXPORT
@interface QBHPUpgradeByHelper : QBHPAppEventBase

// Returns the service, as QBHPHelperControl does.
+ (instancetype)share;

// Set and return the delegate, which is not retained: set nil before it is deallocated.
- (void)setProductUpgradeDelegate:(id<QBHPProductUpgradeCallBackDelegate> QBHP_NULLABLE)delegate;
- (id<QBHPProductUpgradeCallBackDelegate> QBHP_NULLABLE)productUpgradeDelegate;

// Returns NO while a question that the delegate got is unanswered.
- (BOOL)isUpgradeQueryResopned;

// Answers the question with "1", "0" or "ignore".
- (int16_t)productReadyToUpgrade:(NSString* QBHP_NULLABLE)productID
                       versionID:(NSString* QBHP_NULLABLE)versionID
                           ready:(NSString* QBHP_NULLABLE)ready;

// Starts an upgrade.
- (int16_t)productUpgrade:(NSString* QBHP_NULLABLE)productID
                versionID:(NSString* QBHP_NULLABLE)versionID;

// Receives the question. The first two texts are only logged; code and message make an error as in
// QBHPHelperControl.
// clang-format off
- (int16_t)productUpgradeCallBack:(NSString* QBHP_NULLABLE)first :(NSString* QBHP_NULLABLE)second
                                 :(NSString* QBHP_NULLABLE)errorCode :(NSString* QBHP_NULLABLE)errorMessage;
// clang-format on

@end

NS_ASSUME_NONNULL_END
