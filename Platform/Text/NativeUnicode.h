#pragma once

#include <string>
#include <string_view>

namespace qbdkr {

// The system's character tables, as Text.cpp needs them. Half a surrogate pair is an ordinary unit
// here, and is kept.

// Tells whether a UTF-16 unit is a decimal digit of any script.
[[nodiscard]] bool isDecimalDigit(char16_t unit);

// Returns the canonical decomposition (form D): canonically equivalent texts decompose to the same
// one. A system may order a run of more than 32 marks in parts, so that the time for any text is
// bounded by its length.
[[nodiscard]] std::u16string canonicalDecomposition(std::u16string_view text);

// Returns valid UTF-8 in lower case, by rules common to every language.
[[nodiscard]] std::string lowercaseOfValid(std::string_view utf8);

}  // namespace qbdkr
