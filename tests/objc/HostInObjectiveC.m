// A host for tests, in Objective-C. Each line on standard input is a tag, a command and its words;
// the answer is one line, the tag and the result. Words are texts: "~" is nil, "%" is empty.
//   call CLASS SELECTOR WORDS...   calls a method, and returns its result, or what it raised
//   types CLASS SELECTOR           returns the types of the result and the arguments
//   methods CLASS                  returns the selectors that the class has itself, sorted
//   delegate CLASS                 makes an object of that class the delegate for all reports
//   leaks COUNT                    returns the objects that so many calls leave behind

#import <Foundation/NSDebug.h>
#import <QBDKRProductClientObjC/QBDKRProductClientObjC.h>
#include <objc/runtime.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#import "objc/Probe.h"

static void say(NSString* line) {
  const char* text = [[line stringByAppendingString:@"\n"] UTF8String];
  if (write(STDOUT_FILENO, text, strlen(text)) < 0) abort();
}

static NSString* textOf(NSString* word) {
  if ([word isEqualToString:@"~"]) return nil;
  return [word isEqualToString:@"%"] ? @"" : word;
}

static NSString* wordOf(id object) {
  if (object == nil) return @"~";
  return [[object description] length] == 0 ? @"%" : [object description];
}

// --- Delegates, each with another choice of the methods that may be left out --------------------

@interface TakesNothing
    : NSObject <QBHPHelperControlCallBackDelegate, QBHPProductUpgradeCallBackDelegate>
@end
@implementation TakesNothing
@end

@interface TakesExits : TakesNothing
@end
@implementation TakesExits
- (void)willHelperExit {
  say(@"! will-exit");
}
@end

@interface TakesAll : TakesExits
@end
@implementation TakesAll
// clang-format off
- (void)didCheckServerOpen:(BOOL)open :(NSError*)error {
  // clang-format on
  say([NSString
      stringWithFormat:@"! server %d %@ %ld %@", open, wordOf([error domain]), (long)[error code],
                       wordOf([[error userInfo] objectForKey:HelperCommunicateErrorDescription])]);
}
- (void)productWillUpgrade:(NSError*)error {
  say([NSString stringWithFormat:@"! upgrade %ld", (long)[error code]]);
}
@end

@interface Raises : TakesNothing
@end
@implementation Raises
- (void)willHelperExit {
  say(@"! raises");
  [NSException raise:NSGenericException format:@"as it was asked to"];
}
@end

// --- Services that other processes name ----------------------------------------------------------

@interface HostService : QBHPAppEventBase {
  NSUInteger _calls;
}
@end
@implementation HostService
// clang-format off
- (NSString*)join:(NSString*)first :(NSString*)second {
  // clang-format on
  return [NSString stringWithFormat:@"%@+%@", wordOf(first), wordOf(second)];
}
- (NSString*)echo:(NSString*)text {
  return text;
}
- (int16_t)status {
  return 7;
}
- (NSNumber*)number {
  return [NSNumber numberWithInt:7];
}
- (NSString*)count {
  return [NSString stringWithFormat:@"%lu", (unsigned long)++_calls];
}
- (NSString*)flag:(BOOL)flag {
  return flag ? @"yes" : @"no";
}
- (NSString*)raise {
  [NSException raise:NSGenericException format:@"as it was asked to"];
  return @"not raised";
}
- (instancetype)initAgain {
  say(@"! made again");
  return self;
}
- (void)dealloc {
  say(@"! deallocated");
  [super dealloc];
}
@end

@interface NoService : NSObject
@end
@implementation NoService
- (instancetype)init {
  say(@"! made what is no service");
  return [super init];
}
@end

// --- Commands
// -------------------------------------------------------------------------------------

static id receiverOf(NSString* name, SEL selector) {
  Class class = NSClassFromString(name);
  if (![class instancesRespondToSelector:selector]) return class;
  return [class respondsToSelector:@selector(share)] ? [class share]
                                                     : [[[class alloc] init] autorelease];
}

// Returns the text, or the list of texts of a word that begins with a comma.
static id objectOf(NSString* word) {
  if (![word hasPrefix:@","]) return textOf(word);
  return [[word substringFromIndex:1] componentsSeparatedByString:@","];
}

static void setArgument(NSInvocation* invocation, NSUInteger index, NSString* word) {
  union {
    id object;
    SEL selector;
    int16_t small;
    int32_t number;
    double seconds;
    BOOL flag;
  } value;
  switch (*[[invocation methodSignature] getArgumentTypeAtIndex:index]) {
    case '@':
      value.object = objectOf(word);
      break;
    case ':':
      value.selector = NSSelectorFromString(word);
      break;
    case 's':
      value.small = (int16_t)[word intValue];
      break;
    case 'i':
      value.number = [word intValue];
      break;
    case 'd':
      value.seconds = [word doubleValue];
      break;
    default:
      value.flag = [word intValue] != 0;
  }
  [invocation setArgument:&value atIndex:(NSInteger)index];
}

static NSString* resultOf(NSInvocation* invocation) {
  union {
    id object;
    int16_t small;
    int32_t number;
    int64_t large;
    BOOL flag;
  } result = {.large = 0};
  const char type = *[[invocation methodSignature] methodReturnType];
  if (type == 'v') return @"done";
  [invocation getReturnValue:&result];
  switch (type) {
    case '@':
      return wordOf(result.object);
    case 's':
      return [NSString stringWithFormat:@"%d", result.small];
    case 'i':
      return [NSString stringWithFormat:@"%d", result.number];
    case 'q':
    case 'l':
      return [NSString stringWithFormat:@"%ld", (long)result.large];
    default:
      return result.flag ? @"YES" : @"NO";
  }
}

static NSString* call(NSArray* words) {
  const SEL selector = NSSelectorFromString([words objectAtIndex:1]);
  id receiver = receiverOf([words objectAtIndex:0], selector);
  NSMethodSignature* signature = [receiver methodSignatureForSelector:selector];
  if (signature == nil) return @"no such method";
  NSInvocation* invocation = [NSInvocation invocationWithMethodSignature:signature];
  [invocation setTarget:receiver];
  [invocation setSelector:selector];
  NSString* answer = nil;
  NSString** answered = &answer;
  for (NSUInteger i = 2; i < [signature numberOfArguments]; ++i) {
    if (*[signature getArgumentTypeAtIndex:i] == '^') {
      [invocation setArgument:&answered atIndex:(NSInteger)i];
    } else {
      setArgument(invocation, i, i < [words count] ? [words objectAtIndex:i] : @"~");
    }
  }
  [invocation invoke];
  NSString* result = resultOf(invocation);
  const BOOL answers = [[words objectAtIndex:1] hasSuffix:@"result:"];
  return answers ? [NSString stringWithFormat:@"%@ %@", result, wordOf(answer)] : result;
}

static NSString* types(NSArray* words) {
  const SEL selector = NSSelectorFromString([words objectAtIndex:1]);
  NSMethodSignature* signature =
      [receiverOf([words objectAtIndex:0], selector) methodSignatureForSelector:selector];
  NSMutableString* text = [NSMutableString string];
  if (signature == nil) return @"no such method";
  [text appendFormat:@"%c", *[signature methodReturnType]];
  for (NSUInteger i = 2; i < [signature numberOfArguments]; ++i)
    [text appendFormat:@"%c", *[signature getArgumentTypeAtIndex:i]];
  return text;
}

static void addMethods(NSMutableArray* names, Class class) {
  unsigned count = 0;
  Method* methods = class_copyMethodList(class, &count);
  for (unsigned i = 0; i < count; ++i)
    [names addObject:[NSString stringWithUTF8String:sel_getName(method_getName(methods[i]))]];
  free(methods);
}

static NSString* methodsOf(NSArray* words) {
  Class class = NSClassFromString([words objectAtIndex:0]);
  NSMutableArray* names = [NSMutableArray array];
  addMethods(names, class);
  addMethods(names, object_getClass(class));
  return [[names sortedArrayUsingSelector:@selector(compare:)] componentsJoinedByString:@" "];
}

static NSString* setDelegate(NSArray* words) {
  static id delegate = nil;
  id earlier = delegate;
  delegate = [[NSClassFromString([words objectAtIndex:0]) alloc] init];
  [[QBHPHelperControl share] setHelperCtrlDelegate:delegate];
  [[QBHPUpgradeByHelper share] setProductUpgradeDelegate:delegate];
  const BOOL kept = [[QBHPHelperControl share] helperCtrlDelegate] == delegate &&
                    [[QBHPUpgradeByHelper share] productUpgradeDelegate] == delegate;
  const NSUInteger references = [delegate retainCount];
  [earlier release];
  return [NSString
      stringWithFormat:@"%@ %lu", kept ? @"set" : @"not set", delegate == nil ? 0 : references];
}

static NSInteger liveObjects(void) {
  NSInteger count = 0;
  Class* classes = GSDebugAllocationClassList();
  for (Class* class = classes; *class != Nil; ++class) count += GSDebugAllocationCount(*class);
  free(classes);
  return count;
}

static void callMany(NSArray* words, NSInteger count) {
  for (NSInteger i = 0; i < count; ++i) {
    NSAutoreleasePool* pool = [NSAutoreleasePool new];
    call(words);
    [[QBHPHelperCommunicate share] compareVersion:@"1.0" toVersion:@"1.1"];
    [[QBHPHelperCommunicate share] bundleIDSet];
    [QBHPHelperError errorWithCode:@"1":@"message"];
    [pool drain];
  }
}

static NSString* leaks(NSArray* words) {
  const NSInteger count = [[words objectAtIndex:0] integerValue];
  NSArray* message = [words subarrayWithRange:NSMakeRange(1, [words count] - 1)];
  GSDebugAllocationActive(YES);
  callMany(message, 100);  // what is made once
  const NSInteger before = liveObjects();
  callMany(message, count);
  return [NSString stringWithFormat:@"%ld", (long)(liveObjects() - before)];
}

static NSString* perform(NSString* command, NSArray* words) {
  if ([command isEqualToString:@"call"]) return call(words);
  if ([command isEqualToString:@"types"]) return types(words);
  if ([command isEqualToString:@"methods"]) return methodsOf(words);
  if ([command isEqualToString:@"delegate"]) return setDelegate(words);
  if ([command isEqualToString:@"leaks"]) return leaks(words);
  return @"unknown command";
}

@interface Commands : NSObject
@end
@implementation Commands
+ (void)run:(id)nothing {
  char line[4096];
  while (fgets(line, sizeof line, stdin) != NULL) {
    NSAutoreleasePool* pool = [NSAutoreleasePool new];
    NSString* text = [[NSString stringWithUTF8String:line]
        stringByTrimmingCharactersInSet:[NSCharacterSet newlineCharacterSet]];
    NSArray* words = [text componentsSeparatedByString:@" "];
    NSString* command = [words objectAtIndex:1];
    if ([command isEqualToString:@"quit"]) break;
    NSString* result = nil;
    @try {
      result = perform(command, [words subarrayWithRange:NSMakeRange(2, [words count] - 2)]);
    } @catch (NSException* exception) {
      result = [NSString stringWithFormat:@"raised %@", [exception name]];
    }
    say([NSString stringWithFormat:@"%@ %@", [words objectAtIndex:0], result]);
    [pool drain];
  }
  QBHPStopMainLoop();
}
@end

int main(void) {
  NSAutoreleasePool* pool = [NSAutoreleasePool new];
  [QBHPHelperControl share];
  [NSThread detachNewThreadSelector:@selector(run:) toTarget:[Commands class] withObject:nil];
  say(@"! ready");
  QBHPRunMainLoop();
  [pool drain];
  return 0;
}
