#import <QBDKRProductClientObjC/QBHPAppEventBase.h>

#include <ClientComm/QBHPGetDataByHelper.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

@implementation QBHPAppEventBase

- (NSSet*)bundleIDSet {
  NSMutableSet* const identifiers = [NSMutableSet set];
  for (const std::string& identifier : qbdkr::QBHPGetDataByHelper::share().bundleIDSet())
    [identifiers addObject:stringOf(std::string_view(identifier))];
  return identifiers;
}

- (void)setBundleID:(NSString*)bundleID {
  raising([&] { qbdkr::QBHPGetDataByHelper::share().setBundleID(TextOf(bundleID)); });
}

- (id)performSelector:(SEL)selector withObjects:(NSArray*)objects {
  NSMethodSignature* const signature = [self methodSignatureForSelector:selector];
  if (signature == nil) return nil;
  const NSUInteger first = 2;  // after the receiver and the selector
  if ([objects count] + first > [signature numberOfArguments])
    [NSException raise:NSInvalidArgumentException format:@"more arguments than the method takes"];
  NSInvocation* const invocation = [NSInvocation invocationWithMethodSignature:signature];
  [invocation setTarget:self];
  [invocation setSelector:selector];
  for (NSUInteger i = first; i < [signature numberOfArguments]; ++i) {
    if (*[signature getArgumentTypeAtIndex:i] != '@')
      [NSException raise:NSInvalidArgumentException format:@"the method takes other than objects"];
    const NSUInteger index = i - first;
    __unsafe_unretained id object = index < [objects count] ? [objects objectAtIndex:index] : nil;
    [invocation setArgument:&object atIndex:static_cast<NSInteger>(i)];
  }
  [invocation invoke];
  __unsafe_unretained id result = nil;
  if (*[signature methodReturnType] == '@') [invocation getReturnValue:&result];
  return result;
}

@end
