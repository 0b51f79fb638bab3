#pragma once

#import <QBDKRProductClientObjC/QBHPLanguage.h>

NS_ASSUME_NONNULL_BEGIN

// Returns the names in the host's bundle identifier, such as com.Acme.PhotoTool, and its product
// identifier. Any thread. Blocks for files only on first use of the main bundle.
QBHP_EXPORT
@interface QBHPConfig : NSObject

// Returns the maker's part in lower case: acme; nil without an identifier. Raises NSRangeException
// for an identifier of fewer than two parts.
+ (NSString* QBHP_NULLABLE)brandName;

// Returns the maker's and the product's part: acme phototool; "(null) (null)" without an
// identifier. Raises NSRangeException for an identifier of fewer than three parts.
+ (NSString* QBHP_NULLABLE)helperName;

// Returns the main bundle's "PID" as a text; nil if it is missing or no text.
+ (NSString* QBHP_NULLABLE)helperPID;

@end

NS_ASSUME_NONNULL_END
