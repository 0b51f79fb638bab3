#include <array>
#include <cstddef>
#include <cstdio>

#include <ClientComm/Log.h>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Log/NativeLog.h"

namespace qbdkr {
namespace {

constexpr std::size_t longestLine = 16'384;

std::string escaped(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x20 && byte != 0x7F) {
      line += character;
    } else {
      std::array<char, 8> code{};
      std::snprintf(code.data(), code.size(), "\\%03o", byte);
      line += code.data();
    }
  }
  return line;
}

void writeLine(std::string_view line) {
  const bool cut = line.size() > longestLine;
  writeLogLine(escaped(line.substr(0, longestLine)) + (cut ? "..." : ""));
}

// Stops once the line is too long: an argument may have any size.
std::string filled(std::string_view format,
                   std::span<const std::optional<std::string_view>> arguments) {
  std::string line;
  auto argument = arguments.begin();
  while (!format.empty() && line.size() <= longestLine) {
    const bool placeholder = format.starts_with("%@") || format.starts_with("%d");
    if (placeholder && argument != arguments.end()) {
      line += argument->value_or("(null)").substr(0, longestLine + 1);
      ++argument;
      format.remove_prefix(2);
    } else {
      line += format.front();
      format.remove_prefix(1);
    }
  }
  return line;
}

}  // namespace

void log(std::string_view line) {
  dropExceptions([line] { writeLine(line); });
}

void log(std::string_view format, std::span<const std::optional<std::string_view>> arguments) {
  dropExceptions([=] { writeLine(filled(format, arguments)); });
}

}  // namespace qbdkr
