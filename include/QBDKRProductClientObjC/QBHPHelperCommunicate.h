#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>
#import <QBDKRProductClientObjC/QBHPSuiteInfo.h>
#import <QBDKRProductClientObjC/QBHPUpgradeByHelper.h>

NS_ASSUME_NONNULL_BEGIN

// The centre of the framework: holds the product's identity, installs and launches the helper
// agent, keeps it alive, and turns the host's calls into requests to it. Each object of this class
// stands for the one communicator of the process.
//
// Unless a method says otherwise: call it on any thread; it returns at once, with a status of
// QBHPAppleEventSender. Methods marked "settings" block for user defaults, and 0.2 s more at most
// while others hold them.
QBHP_EXPORT
@interface QBHPHelperCommunicate : QBHPAppEventBase

// Returns the communicator, made on first use: that installs and launches the helper agent in the
// background (settings). Raises NSGenericException if no descriptors are left for a run loop.
+ (instancetype)share;

// --- Life cycle ---------------------------------------------------------------------------------

// Does the work of the start-up thread: extractHelper, then launchHelepr. Blocks as they do.
- (void)processHelper;
// Starts a liveness check on a thread of its own. Always returns 0.
- (int16_t)autoRestartHelper;
// Runs a liveness check. Returns 10 if the helper agent's server is switched off; 0 if it can be
// reached or was launched; 1 if the launch failed. Blocks as launchHelepr does.
- (int16_t)restartHelperInThread;
// Returns NO only if the helper agent's user defaults have a true "QBHPServerClosed" (settings).
- (BOOL)getDefaultHelperServerOpen;
// Tells whether a status is 10.
- (BOOL)isHelperSeverNotOpen:(int16_t)status;
// Posts the start request, records the first start (settings), fetches the client identifier, and
// updates the switches. Blocks until the helper agent answers or goes away, and for the files.
- (int16_t)startHelper;
// Posts the stop request. The helper agent then counts as not started.
- (int16_t)stopHelper;
// Posts the liveness request. If that succeeds and the helper agent does not count as started,
// calls startHelper, and blocks as it does.
- (int16_t)isAliveHelper;
// The client identifier that was fetched last; nil before, and during a fetch.
@property(nonatomic, readonly, copy) NSString* QBHP_NULLABLE clientID;
// Fetches and keeps the client identifier; nil if the answer is empty or missing. Blocks until the
// helper agent answers or goes away.
- (NSString* QBHP_NULLABLE)clientIDFormHelper;
// Receive the helper control's reports. An announced exit is answered with stopHelper.
- (void)willHelperExit;
// clang-format off
- (void)didCheckServerOpen:(BOOL)open :(NSError* QBHP_NULLABLE)error;
// clang-format on

// --- Deployment and launch ----------------------------------------------------------------------

// Installs the helper agent from the host's resources, or replaces an older installed one. Blocks
// for the file operations, and 30 s at most while another process deploys.
- (void)extractHelper;
// Opens the helper agent unless it runs, then calls startHelper. NO if it cannot be opened. Blocks
// as both do, and 15 s at most while another process opens it, 10 s until it can be reached.
- (BOOL)launchHelepr;
// Returns the CFBundleVersion of a bundle; nil if it has none. Blocks for the file.
- (NSString* QBHP_NULLABLE)getVersionByBundlePath:(NSString* QBHP_NULLABLE)bundlePath;
// Returns the path of the first entry of a directory with the extension "app"; nil if not found.
// Blocks for the directory.
- (NSString* QBHP_NULLABLE)appPath:(NSString* QBHP_NULLABLE)directory;

// Order version strings such as 1.0b3: the class of a text's first character (0 digit, 1 other, 2
// for a lone dot; raises NSRangeException for an empty text), the runs of equal classes, and -1, 0
// or 1 if the first version is older than the second, equal or newer.
- (int)typeOfCharacter:(NSString*)character;
- (NSArray QBHP_OF(NSString*) *)splitVersionString:(NSString* QBHP_NULLABLE)version;
- (NSInteger)compareVersion:(NSString* QBHP_NULLABLE)version
                  toVersion:(NSString* QBHP_NULLABLE)toVersion;

// --- Bookkeeping in the host's user defaults (settings) -----------------------------------------

// Takes the product identity from the host's information dictionary, and records it.
- (void)synthesizeUserDefault;
// Returns the product identifier of the first start ever. The first call records the current one.
- (NSString* QBHP_NULLABLE)firstStartPID;
// Return and set the product identifier under which usage data is collected; nil removes it.
- (NSString* QBHP_NULLABLE)collectDataPID;
- (void)setCollectDataPID:(NSString* QBHP_NULLABLE)productID;
// Makes the folders Log/Data in a directory, and records the path. Blocks for the folders.
- (void)initDataCollectionPath:(NSString* QBHP_NULLABLE)base;

// --- Switches in the host's bundle --------------------------------------------------------------
// All block for the file operations. A file that is missing, unreadable or read-only stays as it
// is.

// Return the path of the strings file for the switches, and of the property list; nil if not found.
- (NSString* QBHP_NULLABLE)searchCurrentStringsFilePath:(NSString* QBHP_NULLABLE)bundlePath;
- (NSString* QBHP_NULLABLE)searchPlistFilePath:(NSString* QBHP_NULLABLE)bundlePath;
// Write one switch to one of the files.
- (void)saveEnableADToStringsFile:(BOOL)enable;
- (void)saveTipsEnableTostringsFile:(BOOL)enable;
- (void)saveEnableADToPlistFile:(BOOL)enable;
- (void)saveTipsEnableToPlistFile:(BOOL)enable;
// Update a switch in the property list from the information dictionary.
- (void)saveEnableAD;
- (void)saveTipsEnable;
// Set a switch in both files.
- (void)setEnableAD:(BOOL)enable;
- (void)setTipsEnable:(BOOL)enable;

// --- Requests -----------------------------------------------------------------------------------
// All add the product's identity. Those marked "checks" start a liveness check as well.

- (int16_t)showHelper;  // checks
- (int16_t)hideHelper;  // checks

// Answers the helper agent's question whether the product is ready to be upgraded.
- (int16_t)productReadyToUpgrade:(BOOL)ready;
- (int16_t)productUpgrade;  // checks
// Sets the delegate for that question, which is not retained: set nil before it is deallocated.
- (void)setProductUpgradeDelegate:(id<QBHPProductUpgradeCallBackDelegate> QBHP_NULLABLE)delegate;
// Always raises the exception of an unrecognized selector: the upgrade service has no such method.
- (id<QBHPProductUpgradeCallBackDelegate> QBHP_NULLABLE)getProductUpgradeDelegate;

// Hand over a file with the user's e-mail address, a title and a description.
- (int16_t)uploadProductFile:(NSString* QBHP_NULLABLE)email
                    filePath:(NSString* QBHP_NULLABLE)filePath
                       title:(NSString* QBHP_NULLABLE)title
                 description:(NSString* QBHP_NULLABLE)description;
- (int16_t)uploadUserFile:(NSString* QBHP_NULLABLE)email  // checks
                 filePath:(NSString* QBHP_NULLABLE)filePath
                    title:(NSString* QBHP_NULLABLE)title
              description:(NSString* QBHP_NULLABLE)description;
- (int16_t)uploadLogByEmail:(NSString* QBHP_NULLABLE)email  // checks
                   filePath:(NSString* QBHP_NULLABLE)filePath
                      title:(NSString* QBHP_NULLABLE)title
                description:(NSString* QBHP_NULLABLE)description;

// Usage data, collected under collectDataPID (settings). Upload it now; collect a text; count,
// making a missing counter; count.
- (int16_t)directUploadData;
- (int16_t)customStringDataCollect:(NSString* QBHP_NULLABLE)target
                             value:(NSString* QBHP_NULLABLE)value;
- (int16_t)autoCreatedIncreaseDataCollect:(NSString* QBHP_NULLABLE)target
                                      key:(NSString* QBHP_NULLABLE)key;
- (int16_t)commIncreaseDataCollect:(NSString* QBHP_NULLABLE)target key:(NSString* QBHP_NULLABLE)key;

// Tells whether usage data is collected: YES only if the helper agent answers exactly "1". Blocks
// until it answers or goes away.
- (BOOL)productCollectStatus;
- (int16_t)setProductCollectStatus:(BOOL)status;

// Block until the helper agent answers or goes away: return the path of a page to show without a
// network, nil if the answer is empty or missing; and the page for a suite, not registered or
// registered. Those raise NSRangeException for an answer of one field or two.
- (NSString* QBHP_NULLABLE)netErrorPagePath;
- (QBHPSuiteInfo*)unRegSuiteInfo;
- (QBHPSuiteInfo*)regSuiteInfo;

// Look for messages for the product, and open a customer-service request with a file.
- (int16_t)checkForHeleprMessage;                                 // checks
- (int16_t)customerserviceByEmail:(NSString* QBHP_NULLABLE)email  // checks
                       attachment:(NSString* QBHP_NULLABLE)attachment;

@end

NS_ASSUME_NONNULL_END
