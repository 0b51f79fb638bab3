#pragma once

#import <QBDKRProductClientObjC/QBHPLanguage.h>

NS_ASSUME_NONNULL_BEGIN

// Sends RPC events: a class name, a full method name and arguments, which are texts. A nil list of
// them is empty. Any thread; retries nothing. Returns a status:
//   0      posted, or answered
//   -600   the target is not running, or the identifier is missing
//   -609   no bus, or the peer went away during the call
//   -1708  the target takes no RPC events, or answered with an error
//   -1743  the bus or the user refuses, or the target is not the installed copy
//   -1712  a time-out of the bus, or of flush:
//   -50    nothing was sent: a text that is no UTF-16 or holds a NUL, an event beyond the bounds,
//   an
//          invalid identifier, or no memory
QBHP_EXPORT
@interface QBHPAppleEventSender : NSObject

// Returns the sender of this process, made on first use.
+ (instancetype)share;

// Post an event to an application, and to the helper agent, whose class name comes first. Do not
// wait for it; a stuck bus blocks them, 5 s at most at a time.
- (int16_t)sendEvnet:(NSString* QBHP_NULLABLE)bundleID
           className:(NSString* QBHP_NULLABLE)className
          selectName:(NSString* QBHP_NULLABLE)selectName
                args:(NSArray QBHP_OF(NSString*) * QBHP_NULLABLE)args;
- (int16_t)sendEvnet:(NSString* QBHP_NULLABLE)className
          selectName:(NSString* QBHP_NULLABLE)selectName
                args:(NSArray QBHP_OF(NSString*) * QBHP_NULLABLE)args;

// Send an event and wait for its reply, without limit. Always set the result: the reply's text; nil
// if that is empty or missing.
- (int16_t)sendEvnet:(NSString* QBHP_NULLABLE)bundleID
           className:(NSString* QBHP_NULLABLE)className
          selectName:(NSString* QBHP_NULLABLE)selectName
                args:(NSArray QBHP_OF(NSString*) * QBHP_NULLABLE)args
              result:(NSString* QBHP_NULLABLE* QBHP_NONNULL)result;
- (int16_t)sendEvnet:(NSString* QBHP_NULLABLE)className
          selectName:(NSString* QBHP_NULLABLE)selectName
                args:(NSArray QBHP_OF(NSString*) * QBHP_NULLABLE)args
              result:(NSString* QBHP_NULLABLE* QBHP_NONNULL)result;

// Waits until the targets have taken everything that this process posted before the call; blocks
// for so many seconds at most (a day for more). Call it before the process ends: else the last
// posts may be lost. Returns 0, or -1712 if the time is over first.
- (int16_t)flush:(NSTimeInterval)seconds;

@end

NS_ASSUME_NONNULL_END
