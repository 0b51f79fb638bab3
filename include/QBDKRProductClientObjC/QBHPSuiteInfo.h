#pragma once

#import <QBDKRProductClientObjC/QBHPLanguage.h>

NS_ASSUME_NONNULL_BEGIN

// Holds the helper agent's answer about the product's suite: a page, and the size in pixels to show
// it in. Immutable; any thread. Its description is "url = ... width = ... height = ...".
QBHP_EXPORT
@interface QBHPSuiteInfo : NSObject {
 @private
  NSString* _URL;
  int32_t _width;
  int32_t _height;
}

@property(nonatomic, readonly, copy) NSString* QBHP_NULLABLE URL;
@property(nonatomic, readonly) int32_t width;
@property(nonatomic, readonly) int32_t height;

// The first argument is the page's URL.
- (instancetype)initWithDate:(NSString* QBHP_NULLABLE)date
                       width:(int32_t)width
                      height:(int32_t)height;

@end

NS_ASSUME_NONNULL_END
