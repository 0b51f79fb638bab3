#include "Platform/Workspace/LoaderOutputLinux.h"

#include <algorithm>
#include <optional>
#include <string>

namespace qbdkr {
namespace {

// The loader stops at the first library that it cannot load, if it is not to trace them.
constexpr std::string_view stopMark = "error while loading shared libraries: ";

// Returns the part of a line between two texts.
std::optional<std::string_view> between(std::string_view line, std::string_view before,
                                        std::string_view after) {
  const auto found = line.find(before);
  if (found == std::string_view::npos) return std::nullopt;
  line.remove_prefix(found + before.size());
  const auto end = line.find(after);
  if (end == std::string_view::npos) return std::nullopt;
  return line.substr(0, end);
}

void addOnce(std::vector<std::string>& names, std::string_view name) {
  if (std::ranges::find(names, name) == names.end()) names.emplace_back(name);
}

void readLine(std::string_view line, LibraryReport& report) {
  while (line.starts_with('\t') || line.starts_with(' ')) line.remove_prefix(1);
  if (const auto version = between(line, "version `", "' not found (required by")) {
    return addOnce(report.missing, *version);
  }
  if (const auto library = between(line, "Error loading shared library ", ": ")) {
    return addOnce(report.missing, *library);
  }
  if (const auto library = between(line, stopMark, ": ")) {
    const std::string_view reason =
        line.substr(line.find(stopMark) + stopMark.size() + library->size() + 2);
    const bool isMissing = reason.starts_with("cannot open shared object file");
    return addOnce(report.missing, isMissing
                                       ? std::string(*library)
                                       : std::string(*library) + " (" + std::string(reason) + ')');
  }
  const auto arrow = line.find(" => ");
  if (arrow == std::string_view::npos) return;
  if (line.substr(arrow).starts_with(" => not found")) {
    return addOnce(report.missing, line.substr(0, arrow));
  }
  if (const auto path = between(line, " => ", " (0x")) addOnce(report.found, *path);
}

}  // namespace

LibraryReport librariesInLoaderOutput(std::string_view output) {
  LibraryReport report;
  while (!output.empty()) {
    const auto end = std::min(output.find('\n'), output.size());
    readLine(output.substr(0, end), report);
    output.remove_prefix(std::min(end + 1, output.size()));
  }
  report.isKnown = !report.missing.empty() || !report.found.empty();
  return report;
}

}  // namespace qbdkr
