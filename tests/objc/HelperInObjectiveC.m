// A helper agent for tests, in Objective-C. It appends every event that it receives, as one line,
// to the file that QBDKR_PROBE_TRANSCRIPT names, as the helper agent in C++ does.

#import <QBDKRProductClientObjC/QBDKRProductClientObjC.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#import "objc/Probe.h"

static void record(NSString* text) {
  const int file = open(getenv("QBDKR_PROBE_TRANSCRIPT"), O_WRONLY | O_APPEND | O_CREAT, 0600);
  const char* line = [[NSString stringWithFormat:@"%d %@\n", getpid(), text] UTF8String];
  if (write(file, line, strlen(line)) < 0) abort();
  close(file);
}

// Records what it is called with.
@interface Service : QBHPAppEventBase {
  NSString* _name;
  NSString* _sender;
}
- (instancetype)initWithName:(NSString*)name;
@end

@implementation Service

- (instancetype)initWithName:(NSString*)name {
  if ((self = [super init]) != nil) {
    _name = [name copy];
    [[QBHPAppleEventProcesser share] setObjectforKeyToMapTable:self forKey:name];
  }
  return self;
}

- (void)setBundleID:(NSString*)bundleID {
  [super setBundleID:bundleID];
  [_sender release];
  _sender = [bundleID copy];
}

- (id)performSelector:(SEL)selector withObjects:(NSArray*)objects {
  record([NSString stringWithFormat:@"call %@ %@ from %@ %@", _name, NSStringFromSelector(selector),
                                    _sender, [objects componentsJoinedByString:@" "]]);
  return [super performSelector:selector withObjects:objects];
}

@end

@interface Control : Service
@end

@implementation Control

- (int16_t)start:(NSString*)productID prodeuctVersion:(NSString*)prodeuctVersion {
  NSArray* report = [NSArray arrayWithObjects:@"Helper", @"1", @"0", @"", nil];
  return [[QBHPAppleEventSender share] sendEvnet:_sender
                                       className:@"QBHPHelperControl"
                                      selectName:@"checkServerOpenCallBack::::"
                                            args:report];
}

- (int16_t)exitHelper:(NSString*)productID productVersion:(NSString*)productVersion {
  QBHPStopMainLoop();
  return 0;
}

@end

@interface Data : Service
@end

@implementation Data
- (NSString*)clientIDFormHelper {
  return @"client-in-objective-c";
}
@end

int main(void) {
  NSAutoreleasePool* pool = [NSAutoreleasePool new];
  record(@"started");
  [[[Control alloc] initWithName:@"QBHPHelperControl"] release];
  [[[Data alloc] initWithName:@"QBHPGetDataByHelper"] release];
  QBHPRunMainLoop();
  [[QBHPAppleEventProcesser share] removeObjectforKeyToMapTable:@"QBHPHelperControl"];
  [[QBHPAppleEventProcesser share] removeObjectforKeyToMapTable:@"QBHPGetDataByHelper"];
  record(@"ends");
  [pool drain];
  return 0;
}
