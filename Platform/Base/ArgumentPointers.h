#pragma once

#include <string>
#include <vector>

namespace qbdkr {

// Returns the texts in the form of the arguments or the environment of a program: pointers into
// them, and a null pointer at the end.
inline std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace qbdkr
