#pragma once

#include <ClientComm/QBHPUploadByHelper.h>

#include "Service.h"
#include "Uploads.h"

namespace acme {

// Takes files and usage data, and answers questions about products.
class UploadService : public Service {
 public:
  UploadService(State& state, Uploads& uploads, const Transcript& transcript);

  qbdkr::OSErr uploadLog(qbdkr::Text productID, qbdkr::Text versionID, qbdkr::Text email,
                         qbdkr::Text filePath, qbdkr::Text title, qbdkr::Text description);
  qbdkr::OSErr uploadUserFile(qbdkr::Text productID, qbdkr::Text versionID, qbdkr::Text email,
                              qbdkr::Text filePath, qbdkr::Text title, qbdkr::Text description);
  qbdkr::OSErr uploadProductFile(qbdkr::Text productID, qbdkr::Text versionID, qbdkr::Text email,
                                 qbdkr::Text filePath, qbdkr::Text title, qbdkr::Text description);

  // Counts under a key, or keeps a string, unless the host has switched that off.
  qbdkr::OSErr collectData(qbdkr::Text productID, qbdkr::Text version, qbdkr::Text collectionType,
                           qbdkr::Text target, qbdkr::Text keyID, qbdkr::Text value);
  qbdkr::OSErr setProductCollectStatus(qbdkr::Text productID, qbdkr::Text version,
                                       qbdkr::Text status);
  qbdkr::String productCollectStatus(qbdkr::Text productID, qbdkr::Text version);
  qbdkr::OSErr directUploadData(qbdkr::Text productID, qbdkr::Text version);

  // Return a URL, a width and a height, joined by "###".
  qbdkr::String regSuiteInfo(qbdkr::Text productID, qbdkr::Text version);
  qbdkr::String unRegSuiteInfo(qbdkr::Text productID, qbdkr::Text version);
  // Returns the path of a page among this helper agent's resources.
  qbdkr::String netErrorPagePath(qbdkr::Text productID, qbdkr::Text version);

 protected:
  [[nodiscard]] std::span<const qbdkr::Method> methods() const override;

 private:
  Uploads& uploads_;
};

}  // namespace acme
