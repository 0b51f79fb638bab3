#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <QBDKRProductClient/Finding.h>

namespace qbdkr {

// Collects the findings of an examination, in their order.
class Findings {
 public:
  void add(Finding finding) { findings_.push_back(std::move(finding)); }
  void ok(std::string_view subject, std::string text);
  void note(std::string_view subject, std::string text, std::string remedy = {});
  void warning(std::string_view subject, std::string text, std::string remedy);
  void error(std::string_view subject, std::string text, std::string remedy);

  [[nodiscard]] std::vector<Finding> take() { return std::move(findings_); }

 private:
  std::vector<Finding> findings_;
};

// Return a text from outside as a part of a sentence: control characters and bytes that are not
// UTF-8 are escaped, and a long one is cut. The second puts it in quotation marks.
[[nodiscard]] std::string shown(std::string_view text);
[[nodiscard]] std::string inQuotes(std::string_view text);

// Returns names as "a, b and 3 more".
[[nodiscard]] std::string listOf(const std::vector<std::string>& names);

// Returns processes as "process 1" or "processes 1, 2".
[[nodiscard]] std::string listOf(const std::vector<pid_t>& processes);

}  // namespace qbdkr
