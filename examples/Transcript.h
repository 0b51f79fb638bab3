#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace acme {

// What a sample program did, one line each, on standard output and at the end of the file that
// ACME_TRANSCRIPT names, so that what two processes did can be read in the order in which it
// happened.
class Transcript {
 public:
  // The name of this process in the transcript.
  explicit Transcript(std::string name);

  void write(std::string_view line) const;

 private:
  std::string name_;
};

// A text as a transcript shows it.
inline std::string shown(std::optional<std::string_view> text) {
  return text ? '"' + std::string(*text) + '"' : "none";
}

}  // namespace acme
