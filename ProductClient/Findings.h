#pragma once

#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <QBDKRProductClient/Finding.h>

namespace qbdkr {

// A sentence with places for texts: {} shows one that may come from outside, see shown(), and {+}
// takes one as it is. The texts must outlive it.
struct Sentence {
  // Converts, so that a call can be given the sentence alone.
  Sentence(const char* sentenceForm, std::initializer_list<std::string_view> shownTexts = {})
      : form(sentenceForm), texts(shownTexts) {}

  // Returns the sentence with its texts.
  [[nodiscard]] std::string text() const;

  std::string_view form;
  std::initializer_list<std::string_view> texts;
};

// Collects the findings of an examination, in their order.
class Findings {
 public:
  void add(Finding finding) { findings_.push_back(std::move(finding)); }
  void add(Finding::Severity severity, std::string_view subject, const Sentence& text,
           const Sentence& remedy);
  void ok(std::string_view subject, const Sentence& text);
  void note(std::string_view subject, const Sentence& text, const Sentence& remedy = "");
  void warning(std::string_view subject, const Sentence& text, const Sentence& remedy);
  void error(std::string_view subject, const Sentence& text, const Sentence& remedy);

  [[nodiscard]] std::vector<Finding> take() { return std::move(findings_); }

 private:
  std::vector<Finding> findings_;
};

// Returns a text from outside as a part of a sentence: control characters and bytes that are not
// UTF-8 are escaped, and a long one is cut.
[[nodiscard]] std::string shown(std::string_view text);

// Returns names as "a, b and 3 more".
[[nodiscard]] std::string listOf(const std::vector<std::string>& names);

// Returns processes as "process 1" or "processes 1, 2".
[[nodiscard]] std::string listOf(const std::vector<pid_t>& processes);

}  // namespace qbdkr
