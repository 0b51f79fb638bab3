#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Descriptor.h"
#include "Platform/PropertyList.h"
#include "Platform/PropertyListForms.h"
#include "Platform/Text.h"
#include "Platform/XMLBounds.h"

namespace qbdkr {

namespace {

using namespace propertylist;
using namespace std::string_view_literals;

enum class ByteOrder { littleEndian, bigEndian };

std::u16string unitsFromBytes(std::string_view bytes, ByteOrder order) {
  const std::size_t high = order == ByteOrder::bigEndian ? 0 : 1;
  std::u16string units;
  units.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    units += static_cast<char16_t>((static_cast<unsigned char>(bytes[i + high]) << 8) |
                                   static_cast<unsigned char>(bytes[i + 1 - high]));
  }
  return units;
}

bool hasOnlyWholePairs(std::u16string_view units) {
  bool isLowExpected = false;
  for (const char16_t unit : units) {
    const bool isLow = unit >= 0xDC00 && unit < 0xE000;
    if (isLow != isLowExpected) return false;
    isLowExpected = unit >= 0xD800 && unit < 0xDC00;
  }
  return !isLowExpected;
}

std::optional<std::string> textFromUTF16(std::string_view bytes, ByteOrder order) {
  if (bytes.size() % 2 != 0) return std::nullopt;
  const std::u16string units = unitsFromBytes(bytes, order);
  if (!hasOnlyWholePairs(units)) return std::nullopt;
  return utf8FromUTF16(units);
}

// One zero among the first two bytes tells UTF-16 without a mark, which is therefore only
// recognized when the text begins with an ASCII character.
std::optional<std::string> decodedText(std::string_view bytes) {
  if (bytes.starts_with("\xFF\xFE"sv)) {
    return textFromUTF16(bytes.substr(2), ByteOrder::littleEndian);
  }
  if (bytes.starts_with("\xFE\xFF"sv)) {
    return textFromUTF16(bytes.substr(2), ByteOrder::bigEndian);
  }
  if (bytes.size() >= 2 && bytes[1] == '\0') return textFromUTF16(bytes, ByteOrder::littleEndian);
  if (bytes.size() >= 2 && bytes[0] == '\0') return textFromUTF16(bytes, ByteOrder::bigEndian);
  if (bytes.starts_with("\xEF\xBB\xBF"sv)) bytes.remove_prefix(3);
  if (!isValidUTF8(bytes)) return std::nullopt;
  return std::string(bytes);
}

// Besides the containers there are the outermost element and the scalars, and a key for each value
// of a dictionary.
std::optional<PropertyList> readBoundedXML(std::string_view text) {
  const auto xml = withoutXMLDeclaration(text);
  if (!xml || !isBoundedXML(*xml, 2 * maximumValues + 1, maximumLevels + 2)) return std::nullopt;
  return readXML(*xml);
}

Descriptor openForReading(const std::string& path) {
  // Not blocking: opening a pipe would otherwise wait for a writer before it can be refused.
  constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), flags);
  } while (descriptor < 0 && errno == EINTR);
  return Descriptor(descriptor);
}

// Reads to the end whatever the size was said to be: the file may be growing or shrinking.
std::optional<std::string> readToEnd(int descriptor) {
  std::string contents;
  std::array<char, 16384> buffer{};
  while (contents.size() <= maximumBytes) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return contents;
    contents.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return std::nullopt;
}

std::optional<std::string> contentsOfFile(const std::string& path) {
  if (path.find('\0') != std::string::npos) return std::nullopt;
  const Descriptor file = openForReading(path);
  if (!file) return std::nullopt;
  struct stat status = {};
  if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  if (status.st_size > static_cast<off_t>(maximumBytes)) return std::nullopt;
  return readToEnd(file.get());
}

}  // namespace

std::optional<PropertyList> parsePropertyList(std::string_view bytes) {
  if (bytes.size() > maximumBytes) return std::nullopt;
  if (bytes.starts_with("bplist")) return readBinary(bytes);
  const std::optional<std::string> text = decodedText(bytes);
  if (!text) return std::nullopt;
  return looksLikeXML(*text) ? readBoundedXML(*text) : readText(*text);
}

std::optional<PropertyList::Dictionary> readDictionaryFile(const std::string& path) {
  const std::optional<std::string> contents = contentsOfFile(path);
  if (!contents) return std::nullopt;
  const std::optional<PropertyList> list = parsePropertyList(*contents);
  if (!list || !list->dictionary()) return std::nullopt;
  return *list->dictionary();
}

}  // namespace qbdkr
