// The host's requests, each with the product's identity added.

#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/Exceptions.h"
#include "ClientComm/QBHPCustomerServiceByHelepr.h"
#include "Platform/Log.h"
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

OSErr QBHPHelperCommunicate::showHelper() {
  if (const OSErr status = autoRestartHelper(); status != noErr) return status;
  const auto [identifier, version] = product();
  return QBHPHelperControl::share().show(view(identifier), view(version));
}

OSErr QBHPHelperCommunicate::hideHelper() {
  if (const OSErr status = autoRestartHelper(); status != noErr) return status;
  const auto [identifier, version] = product();
  return QBHPHelperControl::share().hide(view(identifier), view(version));
}

OSErr QBHPHelperCommunicate::productReadyToUpgrade(bool ready) {
  const auto [identifier, version] = product();
  return QBHPUpgradeByHelper::share().productReadyToUpgrade(view(identifier), view(version),
                                                            textOf(ready));
}

OSErr QBHPHelperCommunicate::productUpgrade() {
  if (const OSErr status = autoRestartHelper(); status != noErr) return status;
  const auto [identifier, version] = product();
  return QBHPUpgradeByHelper::share().productUpgrade(view(identifier), view(version));
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
  const auto [identifier, version] = product();
  return QBHPUploadByHelper::share().uploadProductFile(view(identifier), view(version), email,
                                                       filePath, title, description);
}

OSErr QBHPHelperCommunicate::uploadUserFile(Text email, Text filePath, Text title,
                                            Text description) {
  if (const OSErr status = autoRestartHelper(); status != noErr) return status;
  const auto [identifier, version] = product();
  return QBHPUploadByHelper::share().uploadUserFile(view(identifier), view(version), email,
                                                    filePath, title, description);
}

OSErr QBHPHelperCommunicate::uploadLogByEmail(Text email, Text filePath, Text title,
                                              Text description) {
  if (const OSErr status = autoRestartHelper(); status != noErr) return status;
  const auto [identifier, version] = product();
  return QBHPUploadByHelper::share().uploadLog(view(identifier), view(version), email, filePath,
                                               title, description);
}

OSErr QBHPHelperCommunicate::directUploadData() {
  const auto [identifier, version] = productOfData();
  return QBHPUploadByHelper::share().directUploadData(view(identifier), view(version));
}

OSErr QBHPHelperCommunicate::collect(CollectionType type, Text target, Text key, Text value) {
  const auto [identifier, version] = productOfData();
  return QBHPUploadByHelper::share().collectData(view(identifier), view(version), type, target, key,
                                                 value);
}

OSErr QBHPHelperCommunicate::customStringDataCollect(Text target, Text value) {
  return collect(CollectionType::customString, target, std::nullopt, value);
}

OSErr QBHPHelperCommunicate::autoCreatedIncreaseDataCollect(Text target, Text key) {
  return collect(CollectionType::createdCounter, target, key, std::nullopt);
}

OSErr QBHPHelperCommunicate::commIncreaseDataCollect(Text target, Text key) {
  return collect(CollectionType::commonCounter, target, key, std::nullopt);
}

bool QBHPHelperCommunicate::productCollectStatus() {
  const auto [identifier, version] = product();
  const auto reply =
      QBHPUploadByHelper::share().productCollectStatus(view(identifier), view(version));
  log("---- result: %@", {view(reply)});
  return reply == "1";
}

OSErr QBHPHelperCommunicate::setProductCollectStatus(bool status) {
  const auto [identifier, version] = product();
  return QBHPUploadByHelper::share().setProductCollectStatus(view(identifier), view(version),
                                                             textOf(status));
}

String QBHPHelperCommunicate::netErrorPagePath() {
  const auto [identifier, version] = product();
  return QBHPUploadByHelper::share().netErrorPagePath(view(identifier), view(version));
}

QBHPSuiteInfo QBHPHelperCommunicate::unRegSuiteInfo() {
  const auto [identifier, version] = product();
  return suiteInfo(QBHPUploadByHelper::share().unRegSuiteInfo(view(identifier), view(version)));
}

QBHPSuiteInfo QBHPHelperCommunicate::regSuiteInfo() {
  const auto [identifier, version] = product();
  return suiteInfo(QBHPUploadByHelper::share().regSuiteInfo(view(identifier), view(version)));
}

OSErr QBHPHelperCommunicate::checkForHeleprMessage() {
  if (const OSErr status = autoRestartHelper(); status != noErr) return status;
  const auto [identifier, version] = product();
  return QBHPCustomerServiceByHelepr::share().checkForHeleprMessage(view(identifier),
                                                                    view(version));
}

OSErr QBHPHelperCommunicate::customerserviceByEmail(Text email, Text attachment) {
  if (const OSErr status = autoRestartHelper(); status != noErr) return status;
  const auto [identifier, version] = product();
  return QBHPCustomerServiceByHelepr::share().customerService(view(identifier), view(version),
                                                              email, attachment);
}

}  // namespace qbdkr
