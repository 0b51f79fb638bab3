#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace qbdkr::propertylist {

// Whether a text can only be XML: what it begins with cannot begin the data of an old-style list,
// which has an angle bracket as well.
[[nodiscard]] bool looksLikeXML(std::string_view text);

// Whether the elements of an XML text are no more and nest no deeper than this, and it brings no
// declarations of its own. Looked at before any reader gets the text: not each has bounds of its
// own. A text that is no XML may pass: it is the reader's to refuse.
[[nodiscard]] bool isBoundedXML(std::string_view text, std::size_t elements, std::size_t levels);

// The text from behind its XML declaration on, which may name another encoding than the text has by
// now. Absent when that is no XML for certain: a reader may then take it for another form or
// encoding, which nobody has measured.
[[nodiscard]] std::optional<std::string_view> withoutXMLDeclaration(std::string_view text);

}  // namespace qbdkr::propertylist
