#include "Platform/Log.h"

namespace qbdkr {

void log(std::string_view format, std::span<const std::optional<std::string_view>> arguments) {
  std::string line;
  auto argument = arguments.begin();
  while (!format.empty()) {
    const bool placeholder = format.starts_with("%@") || format.starts_with("%d");
    if (placeholder && argument != arguments.end()) {
      line += argument->value_or("(null)");
      ++argument;
      format.remove_prefix(2);
    } else {
      line += format.front();
      format.remove_prefix(1);
    }
  }
  log(line);
}

}  // namespace qbdkr
