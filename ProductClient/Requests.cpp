// The host's requests, each with the product's identity added.

#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/Exceptions.h"
#include "ClientComm/QBHPCustomerServiceByHelepr.h"
#include "Platform/Log/Log.h"
#include "ProductClient/ProductRequest.h"
#include "ProductClient/QBHPHelperCommunicate.h"

namespace qbdkr {
namespace {

constexpr std::string_view fieldSeparator = "###";

Text textOf(bool flag) { return flag ? "1" : "0"; }

std::vector<std::string_view> fieldsOf(std::string_view text) {
  std::vector<std::string_view> fields;
  for (;;) {
    const auto end = text.find(fieldSeparator);
    fields.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return fields;
    text.remove_prefix(end + fieldSeparator.size());
  }
}

QBHPSuiteInfo suiteInfo(const String& reply) {
  log("regSuiteStr = %@", {view(reply)});
  if (!reply) return QBHPSuiteInfo::initWithDate(std::nullopt, 0, 0);
  const auto fields = fieldsOf(*reply);
  if (fields.size() < 3) throw RangeException("a suite answer has three fields");
  return QBHPSuiteInfo::initWithDate(fields[0], intValue(fields[1]), intValue(fields[2]));
}

}  // namespace

// The product under which usage data is collected, which need not be the one that runs.
QBHPHelperCommunicate::Product QBHPHelperCommunicate::productOfData() {
  return {collectDataPID(), product().version};
}

OSErr QBHPHelperCommunicate::showHelper() { return checkAndPost(&QBHPHelperControl::show); }

OSErr QBHPHelperCommunicate::hideHelper() { return checkAndPost(&QBHPHelperControl::hide); }

OSErr QBHPHelperCommunicate::productReadyToUpgrade(bool ready) {
  return post(&QBHPUpgradeByHelper::productReadyToUpgrade, textOf(ready));
}

OSErr QBHPHelperCommunicate::productUpgrade() {
  return checkAndPost(&QBHPUpgradeByHelper::productUpgrade);
}

void QBHPHelperCommunicate::setProductUpgradeDelegate(
    QBHPProductUpgradeCallBackDelegate* delegate) {
  QBHPUpgradeByHelper::share().setProductUpgradeDelegate(delegate);
}

QBHPProductUpgradeCallBackDelegate* QBHPHelperCommunicate::getProductUpgradeDelegate() {
  throw UnrecognizedSelectorException(
      "-[QBHPUpgradeByHelper getProductUpgradeDelegate]: unrecognized selector");
}

OSErr QBHPHelperCommunicate::uploadProductFile(Text email, Text filePath, Text title,
                                               Text description) {
  return post(&QBHPUploadByHelper::uploadProductFile, email, filePath, title, description);
}

OSErr QBHPHelperCommunicate::uploadUserFile(Text email, Text filePath, Text title,
                                            Text description) {
  return checkAndPost(&QBHPUploadByHelper::uploadUserFile, email, filePath, title, description);
}

OSErr QBHPHelperCommunicate::uploadLogByEmail(Text email, Text filePath, Text title,
                                              Text description) {
  return checkAndPost(&QBHPUploadByHelper::uploadLog, email, filePath, title, description);
}

OSErr QBHPHelperCommunicate::directUploadData() {
  return postForData(&QBHPUploadByHelper::directUploadData);
}

OSErr QBHPHelperCommunicate::customStringDataCollect(Text target, Text value) {
  return postForData(&QBHPUploadByHelper::collectData, CollectionType::customString, target, Text(),
                     value);
}

OSErr QBHPHelperCommunicate::autoCreatedIncreaseDataCollect(Text target, Text key) {
  return postForData(&QBHPUploadByHelper::collectData, CollectionType::createdCounter, target, key,
                     Text());
}

OSErr QBHPHelperCommunicate::commIncreaseDataCollect(Text target, Text key) {
  return postForData(&QBHPUploadByHelper::collectData, CollectionType::commonCounter, target, key,
                     Text());
}

bool QBHPHelperCommunicate::productCollectStatus() {
  const auto reply = ask(&QBHPUploadByHelper::productCollectStatus);
  log("---- result: %@", {view(reply)});
  return reply == "1";
}

OSErr QBHPHelperCommunicate::setProductCollectStatus(bool status) {
  return post(&QBHPUploadByHelper::setProductCollectStatus, textOf(status));
}

String QBHPHelperCommunicate::netErrorPagePath() {
  return ask(&QBHPUploadByHelper::netErrorPagePath);
}

template <class Method>
QBHPSuiteInfo QBHPHelperCommunicate::askForSuite(Method method) {
  return withoutMemory(QBHPSuiteInfo::initWithDate(std::nullopt, 0, 0),
                       [&] { return suiteInfo(ask(method)); });
}

QBHPSuiteInfo QBHPHelperCommunicate::unRegSuiteInfo() {
  return askForSuite(&QBHPUploadByHelper::unRegSuiteInfo);
}

QBHPSuiteInfo QBHPHelperCommunicate::regSuiteInfo() {
  return askForSuite(&QBHPUploadByHelper::regSuiteInfo);
}

OSErr QBHPHelperCommunicate::checkForHeleprMessage() {
  return checkAndPost(&QBHPCustomerServiceByHelepr::checkForHeleprMessage);
}

OSErr QBHPHelperCommunicate::customerserviceByEmail(Text email, Text attachment) {
  return checkAndPost(&QBHPCustomerServiceByHelepr::customerService, email, attachment);
}

}  // namespace qbdkr
