#pragma once

#include <cstdint>
#include <string>

#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Holds the helper agent's answer about the product's suite: a page, and the size to show it in. An
// immutable plain value.
class QBDKR_EXPORT QBHPSuiteInfo {
 public:
  // Makes a value. The first argument is the page's URL; width and height are pixels.
  [[nodiscard]] static QBHPSuiteInfo initWithDate(Text date, std::int32_t width,
                                                  std::int32_t height);

  // Return what the value was made of.
  [[nodiscard]] const String& URL() const { return url_; }
  [[nodiscard]] std::int32_t width() const { return width_; }
  [[nodiscard]] std::int32_t height() const { return height_; }

  // Returns "url = ... width = ... height = ...", for logs.
  [[nodiscard]] std::string description() const;

 private:
  QBHPSuiteInfo(String url, std::int32_t width, std::int32_t height);

  String url_;
  std::int32_t width_;
  std::int32_t height_;
};

}  // namespace qbdkr
