#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>

NS_ASSUME_NONNULL_BEGIN

// Receives the helper agent's reports, on the main thread, under the dispatcher's lock. It may run
// the main run loop there, as for a modal dialog.
@protocol QBHPHelperControlCallBackDelegate <NSObject>
@optional
// Called when the helper agent announces its exit.
- (void)willHelperExit;
// Called when the helper agent reports whether its server side is open. The error is nil if the
// report has no error code.
// clang-format off
- (void)didCheckServerOpen:(BOOL)open :(NSError* QBHP_NULLABLE)error;
// clang-format on
@end

// Tells the helper agent to start, stop, show, hide or exit, asks whether it is alive, and passes
// its reports on to a delegate. Each object of this class stands for the one control of the
// process.
//
// Requests take a product identifier and a product version. They post and return a status of
// QBHPAppleEventSender at once. Any thread.
QBHP_EXPORT
@interface QBHPHelperControl : QBHPAppEventBase

// Returns the control, made on first use, which installs the dispatcher, and raises as that does.
+ (instancetype)share;

// Set and return the delegate, which is not retained: set nil before it is deallocated, on the main
// thread or while no report can come. The communicator is the delegate at first; set another one
// after it is made, and let that pass the reports on to the communicator. Any thread.
- (void)setHelperCtrlDelegate:(id<QBHPHelperControlCallBackDelegate> QBHP_NULLABLE)delegate;
- (id<QBHPHelperControlCallBackDelegate> QBHP_NULLABLE)helperCtrlDelegate;

- (int16_t)start:(NSString* QBHP_NULLABLE)productID
    prodeuctVersion:(NSString* QBHP_NULLABLE)prodeuctVersion;
- (int16_t)stop:(NSString* QBHP_NULLABLE)productID
    prodeuctVersion:(NSString* QBHP_NULLABLE)prodeuctVersion;
- (int16_t)show:(NSString* QBHP_NULLABLE)productID
    prodeuctVersion:(NSString* QBHP_NULLABLE)prodeuctVersion;
- (int16_t)hide:(NSString* QBHP_NULLABLE)productID
    prodeuctVersion:(NSString* QBHP_NULLABLE)prodeuctVersion;
// Asks for a sign of life: status 0 means that the helper agent can be reached.
- (int16_t)isAlive:(NSString* QBHP_NULLABLE)productID
    prodeuctVersion:(NSString* QBHP_NULLABLE)prodeuctVersion;
- (int16_t)exitHelper:(NSString* QBHP_NULLABLE)productID
       productVersion:(NSString* QBHP_NULLABLE)productVersion;

// Receive the reports. The first argument is only logged, the second of the longer one is the flag,
// then follow an error's code and message. Return 0. Raise NSInvalidArgumentException for a code
// other than 0 without a message.
- (int16_t)helperExitNotify:(NSString* QBHP_NULLABLE)text;
// clang-format off
- (int16_t)checkServerOpenCallBack:(NSString* QBHP_NULLABLE)text :(NSString* QBHP_NULLABLE)open
                                  :(NSString* QBHP_NULLABLE)errorCode :(NSString* QBHP_NULLABLE)errorMessage;
// clang-format on

// Writes the main bundle's "EnableAD" to the first property list of its "Contents". Without the key
// or a property list it does nothing and returns YES. NO if the file cannot be read or written.
// Blocks for the file operations.
- (BOOL)saveEnableADToPlistFile;

@end

NS_ASSUME_NONNULL_END
