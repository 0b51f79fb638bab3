#include "support/HostProcess.h"

#include <algorithm>
#include <stdexcept>

namespace qbdkr::test {

HostProcess::HostProcess(const TestBundle& bundle, const SpawnOptions& options)
    : identifier_(bundle.identifier()), process_({bundle.executable().string()}, options) {
  process_.waitForOutput([](const std::string& line) { return line.starts_with("! ready"); });
}

std::string HostProcess::call(const std::string& command, std::chrono::milliseconds time) {
  return finish(begin(command), time);
}

std::string HostProcess::begin(const std::string& command) {
  const std::string tag = std::to_string(++lastTag_);
  process_.write(tag + ' ' + command + '\n');
  return tag;
}

std::string HostProcess::finish(const std::string& tag, std::chrono::milliseconds time) {
  const std::string start = tag + ' ';
  const std::string line = process_.waitForOutput(
      [&](const std::string& candidate) { return candidate.starts_with(start); }, 0, time);
  return line.substr(start.size());
}

bool HostProcess::hasFinished(const std::string& tag) const {
  const auto lines = process_.output();
  return std::ranges::any_of(lines,
                             [&](const std::string& line) { return line.starts_with(tag + ' '); });
}

std::string HostProcess::waitForReport(const std::string& part) {
  return process_.waitForOutput([&](const std::string& line) {
    return line.starts_with("! ") && line.find(part) != std::string::npos;
  });
}

std::size_t HostProcess::reportsWith(const std::string& part) const {
  const auto lines = process_.output();
  return static_cast<std::size_t>(std::ranges::count_if(lines, [&](const std::string& line) {
    return line.starts_with("! ") && line.find(part) != std::string::npos;
  }));
}

void HostProcess::quit() {
  begin("quit");
  if (process_.wait() == 0) return;
  std::string text = "the host did not end well\n";
  for (const std::string& line : process_.logToItsEnd()) text += line + '\n';
  throw std::runtime_error(text);
}

}  // namespace qbdkr::test
