#include "Platform/PropertyLists/XMLPropertyList.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListScalars.h"

namespace qbdkr::propertylist {

namespace {

enum class Element { key, string, integer, real, yes, no, date, data, array, dictionary };

std::optional<Element> elementNamed(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, Element>, 10> names = {{
      {"key", Element::key},
      {"string", Element::string},
      {"dict", Element::dictionary},
      {"array", Element::array},
      {"integer", Element::integer},
      {"true", Element::yes},
      {"false", Element::no},
      {"real", Element::real},
      {"data", Element::data},
      {"date", Element::date},
  }};
  for (const auto& [known, element] : names) {
    if (known == name) return element;
  }
  return std::nullopt;
}

bool isContainer(Element element) {
  return element == Element::array || element == Element::dictionary;
}

constexpr bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

constexpr auto base64Values = [] {
  std::array<std::int8_t, 256> values{};
  values.fill(-1);
  for (std::size_t i = 0; i < base64Digits.size(); ++i) {
    values[static_cast<unsigned char>(base64Digits[i])] = static_cast<std::int8_t>(i);
  }
  return values;
}();

std::optional<std::string> bytesFromBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (isSpace(c)) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const auto value = base64Values[static_cast<unsigned char>(c)];
    if (value < 0 || padding > 0) return std::nullopt;
    bits = (bits << 6 | static_cast<std::uint32_t>(value)) & 0xFFFFFF;
    // The first digit of a group completes no byte, each later one completes the next.
    const std::size_t place = digits++ % 4;
    if (place > 0) bytes += static_cast<char>(bits >> (6 - 2 * place) & 0xFF);
  }
  if ((digits + padding) % 4 != 0 || padding > 2) return std::nullopt;
  return bytes;
}

template <class Scalar>
std::optional<PropertyList> asValue(std::optional<Scalar> scalar) {
  if (!scalar) return std::nullopt;
  return PropertyList(std::move(*scalar));
}

std::optional<PropertyList> dataValue(std::string_view text) {
  std::optional<std::string> bytes = bytesFromBase64(text);
  if (!bytes) return std::nullopt;
  return PropertyList(PropertyList::Data{std::move(*bytes)});
}

std::optional<PropertyList> flagValue(bool flag, std::string_view text) {
  if (!text.empty()) return std::nullopt;
  return PropertyList(flag);
}

std::optional<PropertyList> scalarValue(Element element, std::string text) {
  switch (element) {
    case Element::string:
      return PropertyList(std::move(text));
    case Element::integer:
      return asValue(integerFromText(trimmed(text)));
    case Element::real:
      return asValue(realFromText(trimmed(text)));
    case Element::date:
      return asValue(dateFromText(trimmed(text)));
    case Element::data:
      return dataValue(text);
    case Element::yes:
      return flagValue(true, text);
    case Element::no:
      return flagValue(false, text);
    case Element::key:
    case Element::array:
    case Element::dictionary:
      break;
  }
  return std::nullopt;
}

struct ParserDeleter {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ParserHandle = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserDeleter>;

// Keeps its own stack of open containers: no input decides how deep the calls go.
class XMLReader {
 public:
  explicit XMLReader(const Bounds& bounds)
      : parser_(XML_ParserCreate("UTF-8")), maximumLevels_(bounds.levels), values_(bounds.values) {}

  std::optional<PropertyList> read(std::string_view utf8) {
    if (!parser_ || utf8.size() > std::size_t{INT32_MAX}) return std::nullopt;
    installHandlers();
    const auto status =
        XML_Parse(parser_.get(), utf8.data(), static_cast<int>(utf8.size()), XML_TRUE);
    if (status != XML_STATUS_OK || failed_) return std::nullopt;
    return std::move(result_);
  }

  // Returns the fault at which read() stopped.
  [[nodiscard]] std::string fault() const {
    if (!parser_) return "";
    const auto error = XML_GetErrorCode(parser_.get());
    if (error == XML_ERROR_NONE && !failed_) return "";
    const XML_LChar* const text = failed_ ? nullptr : XML_ErrorString(error);
    return "line " + std::to_string(XML_GetCurrentLineNumber(parser_.get())) + ": " +
           (text == nullptr ? "not allowed there in a property list" : text);
  }

 private:
  struct Container {
    Element element = Element::array;
    PropertyList::Array values;
    std::vector<PropertyList::Dictionary::Entry> entries;
    std::optional<std::string> key;
  };

  static XMLReader& of(void* self) { return *static_cast<XMLReader*>(self); }

  void installHandlers() {
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(
        parser_.get(),
        [](void* self, const char* name, const char**) {
          if (!of(self).failed_) of(self).start(name);
        },
        [](void* self, const char* name) {
          if (!of(self).failed_) of(self).end(name);
        });
    XML_SetCharacterDataHandler(parser_.get(), [](void* self, const char* text, int length) {
      if (!of(self).failed_) of(self).characters({text, static_cast<std::size_t>(length)});
    });
    // The document type itself is never fetched. One with declarations of its own is refused, as it
    // could bring entities that multiply or that name files.
    XML_SetStartDoctypeDeclHandler(
        parser_.get(), [](void* self, const char*, const char*, const char*, int hasSubset) {
          if (hasSubset != 0) of(self).fail();
        });
    XML_SetSkippedEntityHandler(parser_.get(),
                                [](void* self, const char*, int) { of(self).fail(); });
  }

  void fail() {
    failed_ = true;
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  void start(std::string_view name) {
    if (scalar_) return fail();
    if (!insideRoot_) return startRoot(name);
    const std::optional<Element> element = elementNamed(name);
    if (!element) return fail();
    if (*element == Element::key) return startKey();
    if (!values_.take() || !isValueExpected()) return fail();
    if (isContainer(*element)) return open(*element);
    startScalar(*element);
  }

  // Called at most once: XML has one outermost element.
  void startRoot(std::string_view name) {
    if (name != "plist") return fail();
    insideRoot_ = true;
  }

  void startKey() {
    if (containers_.empty() || containers_.back().element != Element::dictionary) return fail();
    if (containers_.back().key) return fail();
    startScalar(Element::key);
  }

  void startScalar(Element element) {
    scalar_ = element;
    text_.clear();
  }

  void open(Element element) {
    if (containers_.size() == maximumLevels_) return fail();
    containers_.emplace_back().element = element;
  }

  [[nodiscard]] bool isValueExpected() const {
    if (containers_.empty()) return !result_;
    const Container& container = containers_.back();
    return container.element == Element::array || container.key.has_value();
  }

  void characters(std::string_view text) {
    if (scalar_) {
      text_ += text;
      return;
    }
    if (!std::ranges::all_of(text, isSpace)) fail();
  }

  void end(std::string_view name) {
    if (scalar_) return endScalar(*std::exchange(scalar_, std::nullopt));
    if (!containers_.empty()) return endContainer();
    if (name == "plist" && !result_) fail();
  }

  void endScalar(Element element) {
    if (element == Element::key) {
      containers_.back().key = std::move(text_);
      return;
    }
    std::optional<PropertyList> value = scalarValue(element, std::move(text_));
    if (!value) return fail();
    add(std::move(*value));
  }

  void endContainer() {
    Container container = std::move(containers_.back());
    containers_.pop_back();
    if (container.key) return fail();
    if (container.element == Element::array) return add(std::move(container.values));
    add(PropertyList::Dictionary::fromEntries(std::move(container.entries)));
  }

  void add(PropertyList value) {
    if (containers_.empty()) {
      result_ = std::move(value);
      return;
    }
    Container& container = containers_.back();
    if (container.element == Element::array) {
      container.values.push_back(std::move(value));
      return;
    }
    container.entries.emplace_back(std::move(*container.key), std::move(value));
    container.key.reset();
  }

  ParserHandle parser_;
  std::size_t maximumLevels_;
  bool failed_ = false;
  bool insideRoot_ = false;
  std::vector<Container> containers_;
  std::optional<Element> scalar_;
  std::string text_;
  Allowance values_;
  std::optional<PropertyList> result_;
};

class XMLWriter {
 public:
  std::optional<std::string> write(const PropertyList& list) {
    text_ = xmlBegin;
    if (!writeValue(list, 0)) return std::nullopt;
    text_ += xmlEnd;
    return std::move(text_);
  }

 private:
  // False if the text gets too long. The level is the number of containers around the value.
  bool writeValue(const PropertyList& list, std::size_t level) {
    // Stops early: a text that is too long already need not be completed.
    if (text_.size() > maximumBytes) return false;
    return std::visit([&](const auto& value) { return write(value, level); }, list.value());
  }

  bool write(const std::string& string, std::size_t level) {
    return writeText("string", string, level);
  }

  bool write(bool flag, std::size_t level) {
    indent(level);
    text_ += flag ? "<true/>\n" : "<false/>\n";
    return true;
  }

  bool write(PropertyList::Integer integer, std::size_t level) {
    return writeScalar("integer", textFromInteger(integer), level);
  }

  bool write(double real, std::size_t level) {
    return writeScalar("real", textFromReal(real), level);
  }

  bool write(PropertyList::Date date, std::size_t level) {
    return writeScalar("date", textFromDate(date), level);
  }

  bool write(const PropertyList::Data& data, std::size_t level) {
    constexpr std::size_t lineLength = 68;
    const std::string digits = base64FromBytes(data.bytes);
    writeLine("<data>", level);
    for (std::size_t place = 0; place < digits.size(); place += lineLength) {
      writeLine(std::string_view(digits).substr(place, lineLength), level);
    }
    writeLine("</data>", level);
    return true;
  }

  bool write(const PropertyList::Array& array, std::size_t level) {
    if (array.empty()) return writeLine("<array/>", level);
    writeLine("<array>", level);
    for (const PropertyList& value : array) {
      if (!writeValue(value, level + 1)) return false;
    }
    return writeLine("</array>", level);
  }

  bool write(const PropertyList::Dictionary& dictionary, std::size_t level) {
    if (dictionary.empty()) return writeLine("<dict/>", level);
    writeLine("<dict>", level);
    for (const auto& [key, value] : dictionary) {
      if (!writeText("key", key, level + 1) || !writeValue(value, level + 1)) return false;
    }
    return writeLine("</dict>", level);
  }

  bool writeText(std::string_view element, std::string_view string, std::size_t level) {
    std::string escaped;
    escaped.reserve(string.size());
    for (const char c : string) appendEscaped(escaped, c);
    return writeScalar(element, std::move(escaped), level);
  }

  static void appendEscaped(std::string& escaped, char c) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '\r':  // an XML reader takes a plain one for the end of a line
        escaped += "&#13;";
        break;
      default:
        escaped += c;
        break;
    }
  }

  bool writeScalar(std::string_view element, const std::optional<std::string>& content,
                   std::size_t level) {
    if (!content) return false;
    indent(level);
    text_.append("<").append(element).append(">").append(*content);
    text_.append("</").append(element).append(">\n");
    return true;
  }

  bool writeLine(std::string_view line, std::size_t level) {
    indent(level);
    text_.append(line).append("\n");
    return true;
  }

  void indent(std::size_t level) { text_.append(level, '\t'); }

  std::string text_;
};

}  // namespace

bool hasNoncharacter(std::string_view utf8) {
  return utf8.find("\xEF\xBF\xBE") != std::string_view::npos ||
         utf8.find("\xEF\xBF\xBF") != std::string_view::npos;
}

std::optional<PropertyList> readXML(std::string_view utf8, const Bounds& bounds) {
  return XMLReader(bounds).read(utf8);
}

std::string faultOfXML(std::string_view utf8, const Bounds& bounds) {
  XMLReader reader(bounds);
  static_cast<void>(reader.read(utf8));
  return reader.fault();
}

std::optional<std::string> writeXML(const PropertyList& list) { return XMLWriter().write(list); }

}  // namespace qbdkr::propertylist
