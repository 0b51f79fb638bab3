#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Text/Text.h"

namespace qbdkr::tool {

// Keeps keys in the order in which they were added.
using JSON = nlohmann::ordered_json;

enum class Style { plain, heading, good, bad };

// Returns the beginning of a text that has at most that many bytes, and ends with a character.
[[nodiscard]] std::string_view beginningOf(std::string_view text, std::size_t size);

// Counts the columns that a terminal shows a text in that was escaped: characters of East Asia and
// those beyond the first plane take two.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

// Returns the end of a text that was escaped, after "…", if it has more columns.
[[nodiscard]] std::string shortenedAtTheLeft(const std::string& text, std::size_t columns);

// Collects the standard output of a command, which is written when the command ends.
class Output {
 public:
  Output();

  // Returns the width of the terminal; 80 if the output goes elsewhere.
  [[nodiscard]] std::size_t columns() const;

  // Adds one line. Text from outside must be escaped: see shown().
  void line(std::string_view text) { text_.append(text) += '\n'; }
  // Adds a text after a beginning of that width, and breaks it at its blanks. A word that is longer
  // than a line, such as a path, stays whole, so that it can be copied.
  void wrapped(const std::string& beginning, std::size_t width, std::string_view text);
  // Adds text from outside as it is; on a terminal all but its line ends and tabs is escaped. A
  // line end is added if it has none.
  void outside(std::string_view text);
  // Does the same; on a terminal, long lines are broken under what follows their first label, as
  // "Cause: ".
  void outsideLabelled(std::string_view text);
  // Adds a value as JSON.
  void json(const JSON& value);
  // Does the same in one line.
  void jsonLine(const JSON& value);

  // Returns text from outside as it is; on a terminal it is escaped.
  [[nodiscard]] std::string shown(std::string_view text) const;
  // Returns text in a colour or in bold type, if the terminal shows them and the user wants them.
  [[nodiscard]] std::string styled(Style style, std::string_view text) const;

  // Writes all to standard output; absent on success, else the system's message. A reader that has
  // closed its end is no failure.
  [[nodiscard]] std::optional<std::string> write();

 private:
  bool isTerminal_;
  bool hasColours_;
  std::string text_;
};

}  // namespace qbdkr::tool
