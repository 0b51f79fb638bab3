#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include <ClientComm/Export.h>

namespace qbdkr::propertylist {

// Tells whether a text can only be XML: the data of an old-style list begins with an angle bracket
// too, but not in this way.
[[nodiscard]] QBDKR_EXPORT bool looksLikeXML(std::string_view text);

// Tells whether an XML text has at most this many elements and levels, and no declarations of its
// own. Runs before the reader gets the text: what expat keeps of a tag has no bound of ours. A
// text that is not XML may pass; the reader refuses it.
[[nodiscard]] bool isBoundedXML(std::string_view text, std::size_t elements, std::size_t levels);

// Returns the text after its XML declaration, which may name another encoding than the text has by
// now. Absent if the rest is not certainly XML: a reader might take it for another form or
// encoding, whose bounds were not checked.
[[nodiscard]] std::optional<std::string_view> withoutXMLDeclaration(std::string_view text);

}  // namespace qbdkr::propertylist
