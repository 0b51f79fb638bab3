#pragma once

#include <cstdint>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// How usage data is collected under a key.
enum class CollectionType : std::int32_t {
  commonCounter = 3,
  createdCounter = 4,
  customString = 5
};

// Hands files and usage data to the helper agent, and asks it for what it knows of the product. It
// judges no argument: empty texts and missing files are the helper agent's affair.
//
// Requests that return a status post it and return at once: 0, or what QBHPAppleEventSender lists.
// Those that return a text block the calling thread until the helper agent answers, without limit;
// the text is absent when none came back. Any thread.
class QBDKR_EXPORT QBHPUploadByHelper : public QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "QBHPUploadByHelper";

  static QBHPUploadByHelper& share();

  // Uploads a log of the product. The path is passed on as it is.
  OSErr uploadLog(Text productID, Text versionID, Text email, Text filePath, Text title,
                  Text description);
  static constexpr auto kUploadLog = selector<&QBHPUploadByHelper::uploadLog>(
      "uploadLog:versionID:email:filePath:title:description:");

  // Uploads a file of the user. The path is passed on as it is.
  OSErr uploadUserFile(Text productID, Text versionID, Text email, Text filePath, Text title,
                       Text description);
  static constexpr auto kUploadUserFile = selector<&QBHPUploadByHelper::uploadUserFile>(
      "uploadUserFile:versionID:email:filePath:title:description:");

  // Uploads a file of the product. The path is passed on as it is.
  OSErr uploadProductFile(Text productID, Text versionID, Text email, Text filePath, Text title,
                          Text description);
  static constexpr auto kUploadProductFile = selector<&QBHPUploadByHelper::uploadProductFile>(
      "uploadProductFile:versionID:email:filePath:title:description:");

  // Collects a value, or counts, under a target and a key. A type that does not exist is sent as
  // "".
  OSErr collectData(Text productID, Text version, CollectionType collectionType, Text target,
                    Text keyID, Text value);
  static constexpr auto kCollectData = selector<&QBHPUploadByHelper::collectData>(
      "collectData:version:collectionType:target:keyID:value:");

  // Switches the collection of usage data: "1" or "0".
  OSErr setProductCollectStatus(Text productID, Text version, Text status);
  static constexpr auto kSetProductCollectStatus =
      selector<&QBHPUploadByHelper::setProductCollectStatus>(
          "setProductCollectStatus:version:status:");

  // Whether usage data is collected: "1" says so.
  String productCollectStatus(Text productID, Text version);
  static constexpr auto kProductCollectStatus =
      selector<&QBHPUploadByHelper::productCollectStatus>("productCollectStatus:version:");

  // The page for a registered suite: URL, width and height, joined by "###".
  String regSuiteInfo(Text productID, Text version);
  static constexpr auto kRegSuiteInfo =
      selector<&QBHPUploadByHelper::regSuiteInfo>("regSuiteInfo:version:");

  // The same for one that is not registered.
  String unRegSuiteInfo(Text productID, Text version);
  static constexpr auto kUnRegSuiteInfo =
      selector<&QBHPUploadByHelper::unRegSuiteInfo>("unRegSuiteInfo:version:");

  // Uploads now what was collected.
  OSErr directUploadData(Text productID, Text version);
  static constexpr auto kDirectUploadData =
      selector<&QBHPUploadByHelper::directUploadData>("directUploadData:version:");

  // The path of a page to show when there is no network.
  String netErrorPagePath(Text productID, Text version);
  static constexpr auto kNetErrorPagePath =
      selector<&QBHPUploadByHelper::netErrorPagePath>("netErrorPagePath:version:");

  // Always false: nothing sets it.
  [[nodiscard]] bool checkJoinImproveExp() const { return checkJoinImproveExp_; }

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 private:
  const bool checkJoinImproveExp_ = false;
};

}  // namespace qbdkr
