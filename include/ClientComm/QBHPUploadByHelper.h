#pragma once

#include <cstdint>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Request.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// The ways to collect usage data under a key.
enum class CollectionType : std::int32_t {
  commonCounter = 3,
  createdCounter = 4,
  customString = 5
};

// Hands files and usage data to the helper agent, and asks it about the product. Does not check
// arguments: the helper agent deals with empty texts and missing files.
//
// Requests that return a status post and return at once, with a status of QBHPAppleEventSender.
// Those that return a text block the calling thread until the helper agent answers or goes away,
// without limit; the text is absent if the answer is empty or missing. Any thread; throw nothing.
//
// Those that return a Request make the same request, and send nothing yet: it can be given a
// deadline and be cancelled, and need not block. Any thread; throw std::bad_alloc.
class QBDKR_EXPORT QBHPUploadByHelper : public QBHPAppEventBase {
 public:
  // The class name in RPC events.
  static constexpr std::string_view kClassName = "QBHPUploadByHelper";

  // Returns the service of this process, made on first use, never destroyed. Any thread.
  static QBHPUploadByHelper& share();

  // Upload a log, a file of the user, a file of the product. The path is passed on unchanged.
  OSErr uploadLog(Text productID, Text versionID, Text email, Text filePath, Text title,
                  Text description);
  static constexpr auto kUploadLog = selector<&QBHPUploadByHelper::uploadLog>(
      "uploadLog:versionID:email:filePath:title:description:");
  OSErr uploadUserFile(Text productID, Text versionID, Text email, Text filePath, Text title,
                       Text description);
  static constexpr auto kUploadUserFile = selector<&QBHPUploadByHelper::uploadUserFile>(
      "uploadUserFile:versionID:email:filePath:title:description:");
  OSErr uploadProductFile(Text productID, Text versionID, Text email, Text filePath, Text title,
                          Text description);
  static constexpr auto kUploadProductFile = selector<&QBHPUploadByHelper::uploadProductFile>(
      "uploadProductFile:versionID:email:filePath:title:description:");

  // Collects a value, or counts, under a target and a key. An invalid type is sent as "".
  OSErr collectData(Text productID, Text version, CollectionType collectionType, Text target,
                    Text keyID, Text value);
  static constexpr auto kCollectData = selector<&QBHPUploadByHelper::collectData>(
      "collectData:version:collectionType:target:keyID:value:");

  // Switches the collection of usage data: "1" or "0".
  OSErr setProductCollectStatus(Text productID, Text version, Text status);
  static constexpr auto kSetProductCollectStatus =
      selector<&QBHPUploadByHelper::setProductCollectStatus>(
          "setProductCollectStatus:version:status:");

  // Returns whether usage data is collected: "1" means yes.
  String productCollectStatus(Text productID, Text version);
  static constexpr auto kProductCollectStatus =
      selector<&QBHPUploadByHelper::productCollectStatus>("productCollectStatus:version:");
  [[nodiscard]] Request<String> askProductCollectStatus(Text productID, Text version) const;

  // Return the page for a suite, registered or not: URL, width and height in pixels, joined by
  // "###".
  String regSuiteInfo(Text productID, Text version);
  static constexpr auto kRegSuiteInfo =
      selector<&QBHPUploadByHelper::regSuiteInfo>("regSuiteInfo:version:");
  [[nodiscard]] Request<String> askRegSuiteInfo(Text productID, Text version) const;
  String unRegSuiteInfo(Text productID, Text version);
  static constexpr auto kUnRegSuiteInfo =
      selector<&QBHPUploadByHelper::unRegSuiteInfo>("unRegSuiteInfo:version:");
  [[nodiscard]] Request<String> askUnRegSuiteInfo(Text productID, Text version) const;

  // Uploads the collected data now.
  OSErr directUploadData(Text productID, Text version);
  static constexpr auto kDirectUploadData =
      selector<&QBHPUploadByHelper::directUploadData>("directUploadData:version:");

  // Returns the path of a page to show without a network.
  String netErrorPagePath(Text productID, Text version);
  static constexpr auto kNetErrorPagePath =
      selector<&QBHPUploadByHelper::netErrorPagePath>("netErrorPagePath:version:");
  [[nodiscard]] Request<String> askNetErrorPagePath(Text productID, Text version) const;

  // Always returns false.
  [[nodiscard]] bool checkJoinImproveExp() const { return checkJoinImproveExp_; }

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 private:
  const bool checkJoinImproveExp_ = false;
};

}  // namespace qbdkr
