#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>

NS_ASSUME_NONNULL_BEGIN

// Asks the helper agent to open a customer-service request, and to look for messages for the
// product. Posts, and returns a status of QBHPAppleEventSender at once. Any thread.
QBHP_EXPORT
@interface QBHPCustomerServiceByHelepr : QBHPAppEventBase

+ (instancetype)share;

// Opens a request. The attachment is the path of a file, passed on unchecked.
- (int16_t)customerService:(NSString* QBHP_NULLABLE)productID
                 versionID:(NSString* QBHP_NULLABLE)versionID
                     email:(NSString* QBHP_NULLABLE)email
                attachment:(NSString* QBHP_NULLABLE)attachment;

// Lets the helper agent show new messages.
- (int16_t)checkForHeleprMessage:(NSString* QBHP_NULLABLE)productID
                       versionID:(NSString* QBHP_NULLABLE)versionID;

@end

NS_ASSUME_NONNULL_END
