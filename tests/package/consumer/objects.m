#import <QBDKRProductClientObjC/QBDKRProductClientObjC.h>
#include <stdio.h>

int main(void) {
  NSAutoreleasePool* pool = [NSAutoreleasePool new];
  const int status = [[QBHPHelperControl share] isAlive:@"1" prodeuctVersion:@"2"];
  const QBHPSuiteInfo* suite = [[[QBHPSuiteInfo alloc] initWithDate:@"url" width:1
                                                             height:2] autorelease];
  printf("compares %d, status %d\n", (int)[suite width], status == -609 ? -600 : status);
  [pool drain];
  return 0;
}
