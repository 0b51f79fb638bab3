#include "GetData.h"

#include <array>
#include <random>

#include <ClientComm/UserDefaults.h>

namespace acme {

using qbdkr::method;
using Request = qbdkr::QBHPGetDataByHelper;

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

GetData::GetData(State& state, const Transcript& transcript)
    : Service(Request::kClassName, state, transcript) {}

qbdkr::String GetData::clientIDFormHelper() {
  auto& defaults = qbdkr::UserDefaults::standard();
  auto kept = defaults.object(clientIDKey);
  if (!kept || kept->string() == nullptr) {
    kept = qbdkr::PropertyList(newClientID());
    defaults.setObject(clientIDKey, kept);
  }
  // An identifier that would not last is not given out.
  return defaults.synchronize() ? qbdkr::String(*kept->string()) : std::nullopt;
}

qbdkr::String GetData::isNotFirstStart() { return state().isFirstStart() ? "0" : "1"; }

std::span<const qbdkr::Method> GetData::methods() const {
  using Self = GetData;
  static constexpr std::array table{
      method<&Self::clientIDFormHelper>(Request::kClientIDFormHelper),
      method<&Self::isNotFirstStart>(Request::kIsNotFirstStart),
  };
  return table;
}

}  // namespace acme
