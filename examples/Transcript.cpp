#include "Transcript.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace acme {
namespace {

void append(int descriptor, const std::string& line) {
  [[maybe_unused]] const auto written = ::write(descriptor, line.data(), line.size());
}

// Returns the time of day, to the millisecond.
std::string timeOfDay() {
  const auto now = std::chrono::system_clock::now();
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", local.tm_hour % 100,
                local.tm_min % 100, local.tm_sec % 100, static_cast<int>(milliseconds % 1000));
  return text.data();
}

}  // namespace

Transcript::Transcript(std::string name) : name_(std::move(name)) {}

void Transcript::write(std::string_view line) const {
  const std::string text = timeOfDay() + ' ' + name_ + ": " + std::string(line) + '\n';
  append(STDOUT_FILENO, text);
  const char* path = std::getenv("ACME_TRANSCRIPT");
  if (path == nullptr) return;
  const int file = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) return;
  append(file, text);
  ::close(file);
}

}  // namespace acme
