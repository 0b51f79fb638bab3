#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>

NS_ASSUME_NONNULL_BEGIN

// Asks the helper agent for values that only it knows; nil if the answer is empty or missing.
// Blocks until it answers or goes away, without limit. Any thread.
QBHP_EXPORT
@interface QBHPGetDataByHelper : QBHPAppEventBase

+ (instancetype)share;

// Returns the client identifier of this installation.
- (NSString* QBHP_NULLABLE)clientIDFormHelper;

// Returns whether this is not the first start, in the helper agent's words.
- (NSString* QBHP_NULLABLE)isNotFirstStart;

@end

NS_ASSUME_NONNULL_END
