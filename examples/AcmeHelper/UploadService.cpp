#include "UploadService.h"

#include <array>

#include <ClientComm/Bundle.h>

namespace acme {

using qbdkr::CollectionType;
using qbdkr::method;
using qbdkr::OSErr;
using qbdkr::String;
using qbdkr::Text;
using Request = qbdkr::QBHPUploadByHelper;

namespace {

Upload upload(const char* kind, Text productID, Text versionID, Text email, Text filePath,
              Text title, Text description) {
  const auto string = [](Text text) { return std::string(text.value_or("")); };
  return {0,
          kind,
          string(productID),
          string(versionID),
          string(email),
          string(filePath),
          string(title),
          string(description)};
}

}  // namespace

UploadService::UploadService(State& state, Uploads& uploads, const Transcript& transcript)
    : Service(Request::kClassName, state, transcript), uploads_(uploads) {}

OSErr UploadService::uploadLog(Text productID, Text versionID, Text email, Text filePath,
                               Text title, Text description) {
  uploads_.add(upload("log", productID, versionID, email, filePath, title, description));
  return qbdkr::noErr;
}

OSErr UploadService::uploadUserFile(Text productID, Text versionID, Text email, Text filePath,
                                    Text title, Text description) {
  uploads_.add(upload("user file", productID, versionID, email, filePath, title, description));
  return qbdkr::noErr;
}

OSErr UploadService::uploadProductFile(Text productID, Text versionID, Text email, Text filePath,
                                       Text title, Text description) {
  uploads_.add(upload("product file", productID, versionID, email, filePath, title, description));
  return qbdkr::noErr;
}

OSErr UploadService::collectData(Text productID, Text /*version*/, Text collectionType, Text target,
                                 Text keyID, Text value) {
  if (!state().collects(sender())) return qbdkr::noErr;
  const auto type = static_cast<CollectionType>(qbdkr::intValue(collectionType.value_or("")));
  if (type == CollectionType::customString) {
    state().collect(productID.value_or(""), target.value_or(""), value.value_or(""));
  } else if (type == CollectionType::commonCounter || type == CollectionType::createdCounter) {
    state().count(productID.value_or(""), static_cast<std::int64_t>(type), target.value_or(""),
                  keyID.value_or(""));
  }
  return qbdkr::noErr;
}

OSErr UploadService::setProductCollectStatus(Text /*productID*/, Text /*version*/, Text status) {
  state().setCollects(sender(), status == "1");
  return qbdkr::noErr;
}

String UploadService::productCollectStatus(Text /*productID*/, Text /*version*/) {
  return state().collects(sender()) ? "1" : "0";
}

// A helper agent with a server would send the data from here.
OSErr UploadService::directUploadData(Text productID, Text /*version*/) {
  const Collected collected = state().collected(productID.value_or(""));
  note("usage data of product " + shown(productID) + ": counters " +
       std::to_string(collected.counters) + ", their sum " + std::to_string(collected.counts) +
       ", strings " + std::to_string(collected.strings));
  return qbdkr::noErr;
}

String UploadService::regSuiteInfo(Text productID, Text /*version*/) {
  return "https://www.acme.example/suite/" + std::string(productID.value_or("")) + "###640###480";
}

String UploadService::unRegSuiteInfo(Text productID, Text /*version*/) {
  return "https://www.acme.example/offer/" + std::string(productID.value_or("")) + "###300###200";
}

String UploadService::netErrorPagePath(Text /*productID*/, Text /*version*/) {
  return qbdkr::Bundle::main().pathForResource("NetworkError", "html");
}

std::span<const qbdkr::Method> UploadService::methods() const {
  using Self = UploadService;
  static constexpr std::array table{
      method<&Self::uploadLog>(Request::kUploadLog),
      method<&Self::uploadUserFile>(Request::kUploadUserFile),
      method<&Self::uploadProductFile>(Request::kUploadProductFile),
      method<&Self::collectData>(Request::kCollectData),
      method<&Self::setProductCollectStatus>(Request::kSetProductCollectStatus),
      method<&Self::productCollectStatus>(Request::kProductCollectStatus),
      method<&Self::directUploadData>(Request::kDirectUploadData),
      method<&Self::regSuiteInfo>(Request::kRegSuiteInfo),
      method<&Self::unRegSuiteInfo>(Request::kUnRegSuiteInfo),
      method<&Self::netErrorPagePath>(Request::kNetErrorPagePath),
  };
  return table;
}

}  // namespace acme
