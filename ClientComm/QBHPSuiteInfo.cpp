#include <utility>

#include <ClientComm/QBHPSuiteInfo.h>

namespace qbdkr {

QBHPSuiteInfo QBHPSuiteInfo::initWithDate(Text date, std::int32_t width, std::int32_t height) {
  return {date ? String(*date) : std::nullopt, width, height};
}

QBHPSuiteInfo::QBHPSuiteInfo(String url, std::int32_t width, std::int32_t height)
    : url_(std::move(url)), width_(width), height_(height) {}

std::string QBHPSuiteInfo::description() const {
  return "url = " + url_.value_or("(null)") + " width = " + std::to_string(width_) +
         " height = " + std::to_string(height_);
}

}  // namespace qbdkr
