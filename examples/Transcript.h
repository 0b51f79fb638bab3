#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace acme {

// Writes the actions of a sample program, one line each, to standard output and to the end of the
// file that ACME_TRANSCRIPT names. The file shows the actions of two processes in the order in
// which they happened.
class Transcript {
 public:
  // Names this process in the transcript.
  explicit Transcript(std::string name);

  void write(std::string_view line) const;

 private:
  std::string name_;
};

// Returns a text as a transcript shows it.
inline std::string shown(std::optional<std::string_view> text) {
  return text ? '"' + std::string(*text) + '"' : "none";
}

}  // namespace acme
