#include <string>

#include <ClientComm/LogHandler.h>
#include <ClientComm/QBHPUploadByHelper.h>

#include "ClientComm/HelperRequest.h"
#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {
namespace {

constexpr std::string_view uploadLogFormat = "%@ %@ %@ %@ %@ %@ %@ ";

// Returns the name of a type in an RPC event; absent for an invalid type.
Text codeOf(CollectionType type) {
  switch (type) {
    case CollectionType::commonCounter:
      return "3";
    case CollectionType::createdCounter:
      return "4";
    case CollectionType::customString:
      return "5";
  }
  return std::nullopt;
}

}  // namespace

QBHPUploadByHelper& QBHPUploadByHelper::share() {
  static NeverDestroyed service([] { return QBHPUploadByHelper(); });
  return *service;
}

OSErr QBHPUploadByHelper::uploadLog(Text productID, Text versionID, Text email, Text filePath,
                                    Text title, Text description) {
  return postRequest(*this, kUploadLog, {productID, versionID, email, filePath, title, description},
                     uploadLogFormat);
}

OSErr QBHPUploadByHelper::uploadUserFile(Text productID, Text versionID, Text email, Text filePath,
                                         Text title, Text description) {
  return postRequest(*this, kUploadUserFile,
                     {productID, versionID, email, filePath, title, description}, uploadLogFormat);
}

OSErr QBHPUploadByHelper::uploadProductFile(Text productID, Text versionID, Text email,
                                            Text filePath, Text title, Text description) {
  return postRequest(*this, kUploadProductFile,
                     {productID, versionID, email, filePath, title, description}, uploadLogFormat);
}

OSErr QBHPUploadByHelper::collectData(Text productID, Text version, CollectionType collectionType,
                                      Text target, Text keyID, Text value) {
  const std::string number = std::to_string(static_cast<std::int32_t>(collectionType));
  logRequest("%@ productID=%@ version=%@ type=%d target=%@ keyID=%@ value=%@", kCollectData,
             {productID, version, number, target, keyID, value});
  return postRequest(*this, kCollectData,
                     {productID, version, codeOf(collectionType), target, keyID, value});
}

OSErr QBHPUploadByHelper::setProductCollectStatus(Text productID, Text version, Text status) {
  return postRequest(*this, kSetProductCollectStatus, {productID, version, status},
                     "%@ productID = %@ version = %@ status = %@");
}

String QBHPUploadByHelper::productCollectStatus(Text productID, Text version) {
  return askRequest(*this, kProductCollectStatus, {productID, version});
}

String QBHPUploadByHelper::regSuiteInfo(Text productID, Text version) {
  auto reply = askRequest(*this, kRegSuiteInfo, {productID, version});
  log(LogCategory::request, "replay = %@", {privateArgument(view(reply))});
  return reply;
}

String QBHPUploadByHelper::unRegSuiteInfo(Text productID, Text version) {
  return askRequest(*this, kUnRegSuiteInfo, {productID, version});
}

OSErr QBHPUploadByHelper::directUploadData(Text productID, Text version) {
  return postRequest(*this, kDirectUploadData, {productID, version});
}

String QBHPUploadByHelper::netErrorPagePath(Text productID, Text version) {
  return askRequest(*this, kNetErrorPagePath, {productID, version});
}

Request<String> QBHPUploadByHelper::askProductCollectStatus(Text productID, Text version) const {
  return helperRequest(*this, kProductCollectStatus, {productID, version});
}

Request<String> QBHPUploadByHelper::askRegSuiteInfo(Text productID, Text version) const {
  return helperRequest(*this, kRegSuiteInfo, {productID, version});
}

Request<String> QBHPUploadByHelper::askUnRegSuiteInfo(Text productID, Text version) const {
  return helperRequest(*this, kUnRegSuiteInfo, {productID, version});
}

Request<String> QBHPUploadByHelper::askNetErrorPagePath(Text productID, Text version) const {
  return helperRequest(*this, kNetErrorPagePath, {productID, version});
}

}  // namespace qbdkr
