#include "Platform/PropertyLists/XMLBounds.h"

#include <algorithm>

namespace qbdkr::propertylist {

namespace {

// Takes everything through a mark off the front; all of the text if it has no such mark.
std::string_view takeThrough(std::string_view& text, std::string_view mark) {
  const auto place = text.find(mark);
  const auto length = place == std::string_view::npos ? text.size() : place + mark.size();
  const std::string_view taken = text.substr(0, length);
  text.remove_prefix(length);
  return taken;
}

void takeSpace(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
}

// Counts only exactly this form as an element without contents: if a reader might see it otherwise,
// one level too many is safer than one too few.
bool isWithoutContents(std::string_view tag) {
  constexpr std::string_view end = "/>";
  if (!tag.ends_with(end)) return false;
  tag.remove_suffix(end.size());
  return tag.find_first_of("/\"'") == std::string_view::npos;
}

// Readers may differ on where such a tag ends, and so on which text after it is markup.
bool endsInQuotation(std::string_view tag) {
  char quote = '\0';
  for (const char c : tag) {
    if (quote == '\0' && (c == '"' || c == '\'')) {
      quote = c;
    } else if (c == quote) {
      quote = '\0';
    }
  }
  return quote != '\0';
}

// Finds a comment or an instruction whose beginning some readers take for its end as well: they
// would find markup where others see none.
bool mayEndWhereItBegins(std::string_view tag) {
  return tag.starts_with("!-->") || tag.starts_with("!--->") || tag.starts_with("?>");
}

// A property list has one attribute, the version. A reader has to hold all attributes of a tag at
// once.
constexpr std::size_t longestTag = 4096;

constexpr std::string_view commentBegin = "!--";
constexpr std::string_view documentType = "!DOCTYPE";

}  // namespace

bool looksLikeXML(std::string_view text) {
  takeSpace(text);
  return text.starts_with("<?") || text.starts_with("<!") || text.starts_with("<plist");
}

bool isBoundedXML(std::string_view text, std::size_t elements, std::size_t levels) {
  std::size_t level = 0;
  for (auto place = text.find('<'); place != std::string_view::npos; place = text.find('<')) {
    text.remove_prefix(place + 1);
    if (mayEndWhereItBegins(text)) return false;
    if (text.starts_with(commentBegin)) {
      text.remove_prefix(commentBegin.size());
      takeThrough(text, "-->");
    } else if (text.starts_with("![CDATA[")) {
      takeThrough(text, "]]>");
    } else if (text.starts_with('?')) {
      text.remove_prefix(1);
      takeThrough(text, "?>");
    } else {
      const std::string_view tag = takeThrough(text, ">");
      // A tag within a tag is invalid, and a document type with declarations could bring entities
      // that multiply.
      if (tag.find_first_of(tag.starts_with('!') ? "<[" : "<") != std::string_view::npos ||
          endsInQuotation(tag) || tag.size() > longestTag) {
        return false;
      }
      if (tag.starts_with('!')) {
        if (level > 0 || !tag.starts_with(documentType)) return false;
      } else if (tag.starts_with('/')) {
        if (level > 0) --level;
      } else {
        if (elements-- == 0) return false;
        if (!isWithoutContents(tag) && ++level > levels) return false;
      }
    }
  }
  return true;
}

std::optional<std::string_view> withoutXMLDeclaration(std::string_view text) {
  constexpr std::string_view declaration = "<?xml";
  takeSpace(text);
  if (text.starts_with(declaration)) takeThrough(text, "?>");
  takeSpace(text);
  if (!looksLikeXML(text) || text.starts_with(declaration) ||
      text.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  return text;
}

}  // namespace qbdkr::propertylist
