#pragma once

#include <string>

namespace qbdkr {

// Writes one line to the system log. Any thread. The line has no control characters and a bounded
// length, but is not always UTF-8.
void writeLogLine(const std::string& line);

}  // namespace qbdkr
