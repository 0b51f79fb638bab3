#import <AppKit/AppKit.h>

#include "AppKit.h"

namespace {

// Lets AppKit handle what has come for it, without waiting.
void takeEvents(CFRunLoopObserverRef, CFRunLoopActivity, void*) {
  while (NSEvent* event = [NSApp nextEventMatchingMask:NSEventMaskAny
                                             untilDate:nil
                                                inMode:NSDefaultRunLoopMode
                                               dequeue:YES]) {
    [NSApp sendEvent:event];
  }
}

}  // namespace

namespace acme {

void joinAppKit() {
  @autoreleasepool {
    [NSApplication sharedApplication];
    [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
    [NSApp finishLaunching];
  }
  // Each time before the loop sleeps, for as long as the process lives.
  constexpr Boolean repeats = true;
  CFRunLoopObserverRef observer = CFRunLoopObserverCreate(
      kCFAllocatorDefault, kCFRunLoopBeforeWaiting, repeats, 0, takeEvents, nullptr);
  CFRunLoopAddObserver(CFRunLoopGetMain(), observer, kCFRunLoopDefaultMode);
  CFRelease(observer);
}

}  // namespace acme
