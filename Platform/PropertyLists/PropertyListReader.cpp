#include "Platform/PropertyLists/PropertyListReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>

#include <ClientComm/PropertyList.h>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/BinaryPropertyList.h"
#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "Platform/PropertyLists/XMLBounds.h"
#include "Platform/PropertyLists/XMLPropertyList.h"
#include "Platform/Text/Text.h"
#include "Platform/Text/UTF16.h"

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
    const bool isLow = isLowSurrogate(unit);
    if (isLow != isLowExpected) return false;
    isLowExpected = isHighSurrogate(unit);
  }
  return !isLowExpected;
}

std::optional<std::string> textFromUTF16(std::string_view bytes, ByteOrder order) {
  if (bytes.size() % 2 != 0) return std::nullopt;
  const std::u16string units = unitsFromBytes(bytes, order);
  if (!hasOnlyWholePairs(units)) return std::nullopt;
  return utf8FromUTF16(units);
}

// Recognizes UTF-16 without a mark by a zero among the first two bytes, and so only if the text
// begins with an ASCII character.
std::optional<ByteOrder> takeByteOrder(std::string_view& bytes) {
  constexpr std::size_t markSize = 2;
  if (bytes.size() < markSize) return std::nullopt;
  if (bytes[1] == '\0') return ByteOrder::littleEndian;
  if (bytes[0] == '\0') return ByteOrder::bigEndian;
  const bool isLittleEndian = bytes.starts_with("\xFF\xFE"sv);
  if (!isLittleEndian && !bytes.starts_with("\xFE\xFF"sv)) return std::nullopt;
  bytes.remove_prefix(markSize);
  return isLittleEndian ? ByteOrder::littleEndian : ByteOrder::bigEndian;
}

// Allows for a key with each value, for the outermost element, and for the scalars, which nest as
// well.
std::optional<PropertyList> readBoundedXML(std::string_view text, const Bounds& bounds) {
  const auto xml = withoutXMLDeclaration(text);
  if (!xml || !isBoundedXML(*xml, 2 * bounds.values + 1, bounds.levels + 2)) return std::nullopt;
  return readXML(*xml, bounds);
}

Descriptor openForReading(const std::string& path) {
  // Non-blocking: opening a pipe would otherwise wait for a writer before the pipe can be refused.
  constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), flags);
  } while (descriptor < 0 && errno == EINTR);
  return Descriptor(descriptor);
}

std::optional<PropertyList> readXMLOrText(std::string_view utf8, const Bounds& bounds) {
  return looksLikeXML(utf8) ? readBoundedXML(utf8, bounds) : readText(utf8, bounds);
}

std::optional<PropertyList> parse(std::string_view bytes, const Bounds& bounds) {
  if (bytes.size() > bounds.bytes) return std::nullopt;
  if (bytes.starts_with("bplist")) return readBinary(bytes, bounds);
  if (const auto order = takeByteOrder(bytes)) {
    const std::optional<std::string> text = textFromUTF16(bytes, *order);
    return text ? readXMLOrText(*text, bounds) : std::nullopt;
  }
  // UTF-8 needs no copy.
  if (bytes.starts_with("\xEF\xBB\xBF"sv)) bytes.remove_prefix(3);
  return isValidUTF8(bytes) ? readXMLOrText(bytes, bounds) : std::nullopt;
}

std::string faultOfUnreadFile(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) return std::generic_category().message(errno);
  if (!S_ISREG(status.st_mode)) return "it is not a regular file";
  if (status.st_size > static_cast<off_t>(maximumBytes)) return "it is larger than 16 MiB";
  if (::access(path.c_str(), R_OK) != 0) return std::generic_category().message(errno);
  return "it cannot be read";
}

std::string faultOfUnparsedBytes(std::string_view bytes) {
  if (bytes.starts_with("bplist")) return "it is a damaged binary property list";
  const auto text = textOf(bytes);
  if (!text) return "it is neither UTF-8 nor UTF-16";
  if (!looksLikeXML(*text)) return "it is neither XML nor another form of a property list";
  const std::string fault = faultOfXML(*text, Bounds());
  return fault.empty() ? "its XML is refused" : fault;
}

}  // namespace

namespace propertylist {

FileContents contentsOfFile(const std::string& path, std::size_t maximum) {
  if (path.find('\0') != std::string::npos) return {};
  const Descriptor file = openForReading(path);
  if (!file) return {std::nullopt, errno == EACCES};
  struct stat status = {};
  if (::fstat(file.get(), &status) != 0) return {std::nullopt, false};
  if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(maximum)) return {};
  auto bytes = qbdkr::contentsOfFile(file.get(), maximum);
  const bool isConclusive = bytes || errno == EFBIG;
  return {std::move(bytes), isConclusive};
}

std::optional<std::string> textOf(std::string_view bytes) {
  if (const auto order = takeByteOrder(bytes)) return textFromUTF16(bytes, *order);
  if (bytes.starts_with("\xEF\xBB\xBF"sv)) bytes.remove_prefix(3);
  return isValidUTF8(bytes) ? std::optional(std::string(bytes)) : std::nullopt;
}

std::optional<PropertyList::Dictionary> parseDictionary(std::string_view bytes,
                                                        const Bounds& bounds) {
  // Empty bytes could be a text without pairs, but an empty file is one that was cut off.
  if (bytes.empty()) return std::nullopt;
  std::optional<PropertyList> list = parse(bytes, bounds);
  if (!list || !list->dictionary()) return std::nullopt;
  return std::get<PropertyList::Dictionary>(std::move(*list).value());
}

}  // namespace propertylist

std::optional<PropertyList> parsePropertyList(std::string_view bytes) {
  return parse(bytes, Bounds());
}

std::optional<PropertyList::Dictionary> readDictionaryFile(const std::string& path) {
  const FileContents contents = contentsOfFile(path, maximumBytes);
  return contents.bytes ? parseDictionary(*contents.bytes, Bounds()) : std::nullopt;
}

std::optional<std::string> faultOfDictionaryFile(const std::string& path) {
  const FileContents contents = contentsOfFile(path, maximumBytes);
  if (!contents.bytes) return faultOfUnreadFile(path);
  if (contents.bytes->empty()) return "it is empty";
  const auto list = parsePropertyList(*contents.bytes);
  if (!list) return faultOfUnparsedBytes(*contents.bytes);
  if (list->dictionary() == nullptr) return "its outermost value is not a dictionary";
  return std::nullopt;
}

}  // namespace qbdkr
