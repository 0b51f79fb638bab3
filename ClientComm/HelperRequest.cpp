#include "ClientComm/HelperRequest.h"

#include <cstddef>
#include <string_view>
#include <vector>

#include <ClientComm/LogHandler.h>
#include <ClientComm/QBHPAppleEventSender.h>

#include "ClientComm/OutOfMemory.h"
#include "Platform/Base/DropExceptions.h"

namespace qbdkr {
namespace {

std::vector<std::string_view> texts(std::initializer_list<Text> arguments) {
  std::vector<std::string_view> result;
  result.reserve(arguments.size());
  for (const Text& argument : arguments) result.push_back(argument.value_or(std::string_view()));
  return result;
}

}  // namespace

void logRequest(std::string_view format, Selector method, std::initializer_list<Text> arguments) {
  // If memory runs out here the request is still made; it then fails by itself.
  dropExceptions([&] {
    constexpr std::size_t product = 2;  // its identifier and version come first
    std::vector<LogArgument> filled{publicArgument(method.text())};
    for (const Text& argument : arguments) filled.emplace_back(argument, filled.size() > product);
    log({LogLevel::notice, LogCategory::request, format, filled});
  });
}

OSErr postRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments) {
  return paramErrWithoutMemory([&] {
    return QBHPAppleEventSender::share().sendEvnet(service.className(), method.text(),
                                                   texts(arguments));
  });
}

OSErr postRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments, std::string_view logFormat) {
  logRequest(logFormat, method, arguments);
  return postRequest(service, method, arguments);
}

String askRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments) {
  String result;
  dropExceptions([&] {
    QBHPAppleEventSender::share().sendEvnet(service.className(), method.text(), texts(arguments),
                                            result);
  });
  return result;
}

Request<String> helperRequest(const QBHPAppEventBase& service, Selector method,
                              std::initializer_list<Text> arguments) {
  return QBHPAppleEventSender::share().askEvnet(service.className(), method.text(),
                                                texts(arguments));
}

}  // namespace qbdkr
