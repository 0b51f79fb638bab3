#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace qbdkr::test {

// Appends one line to a file, with a single write: the lines of several processes do not mix. Opens
// the file each time, so that its reader can put it aside.
inline void appendLine(const std::string& path, std::string line) {
  const int file = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) return;
  line += '\n';
  [[maybe_unused]] const auto written = ::write(file, line.data(), line.size());
  ::close(file);
}

}  // namespace qbdkr::test
