#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>

NS_ASSUME_NONNULL_BEGIN

// Receives every RPC event of the process on the main run loop, and calls the named method on the
// object registered under the class name. Each object of this class stands for the one dispatcher
// of the process. Any thread.
QBHP_EXPORT
@interface QBHPAppleEventProcesser : NSObject

// Returns the dispatcher, made and installed on first use. Raises NSGenericException if no
// descriptors are left for a run loop.
+ (instancetype)share;

// Install the dispatcher as the process's handler of RPC events, and remove it. Do not wait.
- (void)regist;
- (void)unRegist;

// Registers an object under a class name, and retains it until the name is removed. It replaces an
// earlier object, which is kept as long: an event may be in it. Does not wait.
- (void)setObjectforKeyToMapTable:(QBHPAppEventBase*)object forKey:(NSString*)key;

// Removes a class name, and releases its objects. Does not wait for a method that runs: call it on
// the main thread, or while no event can come.
- (void)removeObjectforKeyToMapTable:(NSString*)className;

@end

NS_ASSUME_NONNULL_END
