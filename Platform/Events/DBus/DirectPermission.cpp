#include "Platform/Events/DBus/DirectPermission.h"

#include <cstdlib>

#include <ClientComm/Bundle.h>

namespace qbdkr {
namespace {

bool isAllowed() {
  const char* variable = std::getenv(directVariable);
  if (variable != nullptr && std::string_view(variable) == "0") return false;
  const auto flag = Bundle::main().infoString(directConnectionsKey);
  return !flag || flag->empty() ||
         std::string_view("0NnFf").find(flag->front()) == std::string_view::npos;
}

}  // namespace

bool mayConnectDirectly() {
  static const bool isAllowedHere = isAllowed();
  return isAllowedHere;
}

}  // namespace qbdkr
