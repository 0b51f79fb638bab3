#include "Transcript.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace acme {
namespace {

void append(int descriptor, const std::string& line) {
  [[maybe_unused]] const auto written = ::write(descriptor, line.data(), line.size());
}

}  // namespace

Transcript::Transcript(std::string name) : name_(std::move(name)) {}

void Transcript::write(std::string_view line) const {
  const std::string text = name_ + ": " + std::string(line) + '\n';
  append(STDOUT_FILENO, text);
  const char* path = std::getenv("ACME_TRANSCRIPT");
  if (path == nullptr) return;
  const int file = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) return;
  append(file, text);
  ::close(file);
}

}  // namespace acme
