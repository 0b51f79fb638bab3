#pragma once

#import <QBDKRProductClientObjC/QBHPLanguage.h>

NS_ASSUME_NONNULL_BEGIN

// The methods of every service.
@protocol QBHPAppEventBase <NSObject>

// Returns the bundle identifiers of the first 4,096 applications from which this process dispatched
// an RPC event, to any of its services. Any thread; does not block.
- (NSSet QBHP_OF(NSString*) *)bundleIDSet;

// Records the sender of the event that is dispatched next. Raises NSInvalidArgumentException for
// nil: the event is then not dispatched. The dispatcher calls it on the main thread; any thread
// may.
- (void)setBundleID:(NSString* QBHP_NULLABLE)bundleID;

// Calls a method with arguments that are objects, missing ones nil, and returns its object; nil if
// it returns none, or is not implemented. Raises NSInvalidArgumentException for more arguments than
// the method takes, and for a method that takes other than objects. Runs on the calling thread;
// blocks and raises as the method does.
- (id QBHP_NULLABLE)performSelector:(SEL)selector withObjects:(NSArray* QBHP_NULLABLE)objects;

@end

// The base of every service class. A host or helper agent derives its own from it: an RPC event is
// dispatched to the object that is registered under the class name (QBHPAppleEventProcesser), else
// to a new object of the class of that name, which is made with init, and kept.
//
// Other processes can call the methods that the class and its superclasses below this one
// implement, if all arguments are objects: they get texts, NSString. Not called are methods that
// this class has too, and those whose names begin with "init" or a dot. A method that returns a
// text answers the event with it; any other result is no answer. It runs on the main thread, under
// the dispatcher's lock. An exception that leaves it gives no answer.
QBHP_EXPORT
@interface QBHPAppEventBase : NSObject <QBHPAppEventBase>
@end

NS_ASSUME_NONNULL_END
