#include "GetData.h"

#include <array>
#include <random>

#include "ClientComm/QBHPAppleEventProcesser.h"
#include "Platform/UserDefaults.h"

namespace acme {
namespace {

constexpr std::string_view clientIDKey = "ClientID";

std::string newClientID() {
  constexpr std::string_view digits = "0123456789abcdef";
  std::random_device random;
  std::string identifier;
  for (int i = 0; i < 32; ++i) identifier += digits[random() % digits.size()];
  return identifier;
}

}  // namespace

GetData::GetData(const Transcript& transcript) : transcript_(transcript) {
  qbdkr::QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, kClassName);
}

GetData::~GetData() {
  qbdkr::QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(kClassName);
}

qbdkr::String GetData::clientIDFormHelper() {
  auto& defaults = qbdkr::UserDefaults::standard();
  auto kept = defaults.object(clientIDKey);
  if (!kept || kept->string() == nullptr) {
    kept = qbdkr::PropertyList(newClientID());
    defaults.setObject(clientIDKey, kept);
    if (!defaults.synchronize()) return std::nullopt;  // one that would not last is none
  }
  transcript_.write("client identifier request answered with " + shown(*kept->string()));
  return *kept->string();
}

std::span<const qbdkr::Method> GetData::methods() const {
  using Self = GetData;
  static constexpr std::array table{qbdkr::method<&Self::clientIDFormHelper>(
      qbdkr::selector<&Self::clientIDFormHelper>("clientIDFormHelper"))};
  return table;
}

}  // namespace acme
