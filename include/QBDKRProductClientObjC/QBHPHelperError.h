#pragma once

#import <QBDKRProductClientObjC/QBHPLanguage.h>

NS_ASSUME_NONNULL_BEGIN

// The domain of the errors that the helper agent reports, and the key of their message.
QBHP_EXPORT extern NSString* const HelperCommunicateErrorDomain;
QBHP_EXPORT extern NSString* const HelperCommunicateErrorDescription;

QBHP_EXPORT
@interface QBHPHelperError : NSError

// Returns an error of that domain: its code is the integer at the beginning of the text, 0 without
// one. Raises NSInvalidArgumentException if the description is nil. Any thread; does not block.
// clang-format off
+ (NSError*)errorWithCode:(NSString* QBHP_NULLABLE)code :(NSString* QBHP_NULLABLE)description;
// clang-format on

@end

NS_ASSUME_NONNULL_END
