#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Tests and the probe programs write texts of any bytes into one line of words, and summarize long
// lists of texts.
namespace qbdkr::test {

// Returns a word for a text: the text itself if it is a plain word, else "%" and its bytes in
// hexadecimal.
inline std::string encoded(std::string_view text) {
  const auto plain = [](char byte) { return byte > ' ' && byte < '\x7f'; };
  bool isWord = !text.empty() && std::string_view("%~*+#").find(text.front()) == text.npos;
  for (const char byte : text) isWord = isWord && plain(byte);
  if (isWord) return std::string(text);
  constexpr std::string_view digits = "0123456789abcdef";
  std::string word = "%";
  for (const char byte : text) {
    const auto value = static_cast<unsigned char>(byte);
    word += digits[value >> 4U];
    word += digits[value & 0xFU];
  }
  return word;
}

inline std::string encoded(const std::string& text) { return encoded(std::string_view(text)); }

// The word for an absent text.
inline constexpr std::string_view absentWord = "~";

inline std::string encoded(const std::optional<std::string>& text) {
  return text ? encoded(*text) : std::string(absentWord);
}

// Makes a text of a size: the same for the same seed, without two equal halves.
inline std::string patternText(std::size_t size, unsigned seed) {
  std::string text(size, '\0');
  std::uint32_t state = seed * 2654435761U + 1;
  for (char& byte : text) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>('!' + (state >> 24U) % 90);
  }
  return text;
}

inline std::vector<std::string> numberedTexts(std::size_t count) {
  std::vector<std::string> texts;
  texts.reserve(count);
  for (std::size_t i = 0; i < count; ++i) texts.push_back("argument-" + std::to_string(i));
  return texts;
}

// Returns the texts of words: those of encoded(), and "*SIZE:SEED" for patternText() and "+COUNT"
// for so many numberedTexts().
inline std::vector<std::string> decoded(std::span<const std::string> words) {
  std::vector<std::string> texts;
  for (const std::string& word : words) {
    if (word.starts_with('+')) {
      for (auto& text : numberedTexts(std::stoul(word.substr(1)))) texts.push_back(std::move(text));
    } else if (word.starts_with('*')) {
      const auto colon = word.find(':');
      texts.push_back(patternText(std::stoul(word.substr(1, colon - 1)),
                                  static_cast<unsigned>(std::stoul(word.substr(colon + 1)))));
    } else if (word.starts_with('%')) {
      std::string text;
      for (std::size_t i = 1; i + 1 < word.size(); i += 2) {
        text += static_cast<char>(std::stoi(word.substr(i, 2), nullptr, 16));
      }
      texts.push_back(std::move(text));
    } else {
      texts.push_back(word);
    }
  }
  return texts;
}

// Returns one word with the count of the texts, their bytes and a digest of their contents.
inline std::string summary(std::span<const std::string> texts) {
  std::uint64_t digest = 14695981039346656037ULL;
  std::size_t bytes = 0;
  const auto add = [&digest](unsigned char byte) { digest = (digest ^ byte) * 1099511628211ULL; };
  for (const std::string& text : texts) {
    for (const char byte : text) add(static_cast<unsigned char>(byte));
    add(0);
    bytes += text.size();
  }
  return "#" + std::to_string(texts.size()) + ":" + std::to_string(bytes) + ":" +
         std::to_string(digest);
}

// Returns the texts as words if they are few and short, else their summary.
inline std::string shown(std::span<const std::string> texts) {
  constexpr std::size_t longest = 400;
  std::string words;
  for (const std::string& text : texts) {
    if (words.size() + text.size() > longest) return " " + summary(texts);
    words += ' ' + encoded(text);
  }
  return words;
}

inline std::vector<std::string> wordsOf(std::string_view line) {
  std::vector<std::string> words;
  std::size_t start = 0;
  while (start < line.size()) {
    const auto end = std::min(line.find(' ', start), line.size());
    if (end > start) words.emplace_back(line.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

}  // namespace qbdkr::test
