#include "ClientComm/HelperRequest.h"

#include <string_view>
#include <vector>

#include "ClientComm/QBHPAppleEventSender.h"

namespace qbdkr {
namespace {

std::vector<std::string_view> texts(std::initializer_list<Text> arguments) {
  std::vector<std::string_view> result;
  result.reserve(arguments.size());
  for (const Text& argument : arguments) result.push_back(argument.value_or(std::string_view()));
  return result;
}

}  // namespace

OSErr postRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments) {
  return QBHPAppleEventSender::share().sendEvnet(service.className(), method.text(),
                                                 texts(arguments));
}

String askRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments) {
  String result;
  QBHPAppleEventSender::share().sendEvnet(service.className(), method.text(), texts(arguments),
                                          result);
  return result;
}

}  // namespace qbdkr
