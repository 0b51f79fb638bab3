#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>
#import <QBDKRProductClientObjC/QBHPAppleEventProcesser.h>
#import <QBDKRProductClientObjC/QBHPAppleEventSender.h>
#import <QBDKRProductClientObjC/QBHPConfig.h>
#import <QBDKRProductClientObjC/QBHPCustomerServiceByHelepr.h>
#import <QBDKRProductClientObjC/QBHPGetDataByHelper.h>
#import <QBDKRProductClientObjC/QBHPHelper.h>
#import <QBDKRProductClientObjC/QBHPHelperCommunicate.h>
#import <QBDKRProductClientObjC/QBHPHelperControl.h>
#import <QBDKRProductClientObjC/QBHPHelperError.h>
#import <QBDKRProductClientObjC/QBHPProcessList.h>
#import <QBDKRProductClientObjC/QBHPSuiteInfo.h>
#import <QBDKRProductClientObjC/QBHPUpgradeByHelper.h>
#import <QBDKRProductClientObjC/QBHPUploadByHelper.h>
