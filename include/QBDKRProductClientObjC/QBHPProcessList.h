#pragma once

#import <QBDKRProductClientObjC/QBHPLanguage.h>

NS_ASSUME_NONNULL_BEGIN

// Lists the processes of this machine. Each call reads the system's state anew. Any thread; blocks
// for the system's files.
QBHP_EXPORT
@interface QBHPProcessList : NSObject

+ (instancetype)share;

// Returns one entry per process, in kernel order: "pname" is the name of its application or else
// its command name, "pid" its ID and "uid" its effective user, in decimal. Empty if the table
// cannot be read.
- (NSArray QBHP_OF(NSDictionary QBHP_OF(NSString*, NSString*) *) *)getBSDProcessList;

// Returns the information dictionary of the application that a process runs; nil if it runs none.
- (NSDictionary QBHP_OF(NSString*, id) * QBHP_NULLABLE)infoForPID:(int32_t)pid;

// Tells whether any process runs an application with exactly this bundle identifier. NO if an
// argument is nil; the path has no other effect.
- (BOOL)applicationIsRunning:(NSString* QBHP_NULLABLE)bundleIdentifier
                  bundlePath:(NSString* QBHP_NULLABLE)bundlePath;

@end

NS_ASSUME_NONNULL_END
