// SPDX-License-Identifier: Apache-2.0
// Text of peers in pages: it must neither become a part of the page nor mislead its reader.
#ifndef VELTRA_TOOLS_HTML_TEXT_H
#define VELTRA_TOOLS_HTML_TEXT_H

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

namespace VeltraTool {

// For the content of an element, and for a quoted attribute. Control characters are escaped as on a terminal.
std::string HtmlText(std::string_view text);

// A document for an element <script type="application/json">, which no text in it can end.
std::string HtmlJson(const Json::Value& document);

// One column of a table. Its style is "text", which may be long and wraps, "word" or "number", which is aligned on the
// right.
struct HtmlColumn {
    const char* heading;
    const char* style;
};
// Headings and cells are texts, and escaped here. A wide table scrolls in its own box.
std::string HtmlTable(const std::string& caption, const std::vector<HtmlColumn>& columns,
                      const std::vector<std::vector<std::string>>& rows);

}  // namespace VeltraTool

#endif
