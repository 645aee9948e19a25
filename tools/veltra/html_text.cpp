// SPDX-License-Identifier: Apache-2.0
// Text for a page. Everything comes from a recording, so every text is escaped here: characters that a browser would
// read as markup, and before that what a terminal escapes, since invisible characters can mislead a reader of a page
// too.
#include "html_text.h"

#include "output.h"

namespace VeltraTool {

std::string HtmlText(std::string_view text)
{
    std::string html;
    for (const char letter : Escaped(text)) {
        switch (letter) {
            case '<':
                html += "&lt;";
                break;
            case '>':
                html += "&gt;";
                break;
            case '&':
                html += "&amp;";
                break;
            case '"':
                html += "&quot;";
                break;
            case '\'':
                html += "&#39;";
                break;
            default:
                html += letter;
        }
    }
    return html;
}

std::string HtmlJson(const Json::Value& document)
{
    std::string escaped;
    for (const char letter : JsonText(document)) {  // '<' occurs in texts only; it could end the script element
        escaped += letter == '<' ? "\\u003c" : std::string(1, letter);
    }
    return escaped;
}

std::string HtmlTable(const std::string& caption, const std::vector<HtmlColumn>& columns,
                      const std::vector<std::vector<std::string>>& rows)
{
    const auto classOf = [&columns](size_t i) { return std::string(" class=\"") + columns[i].style + "\">"; };
    std::string html = "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"" + HtmlText(caption) +
                       "\"><table><thead><tr>";
    for (size_t i = 0; i < columns.size(); ++i) {
        html += "<th scope=\"col\"" + classOf(i) + HtmlText(columns[i].heading) + "</th>";
    }
    html += "</tr></thead><tbody>\n";
    for (const std::vector<std::string>& row : rows) {
        html += "<tr>";
        for (size_t i = 0; i < row.size(); ++i) {
            html += "<td" + classOf(i) + HtmlText(row[i]) + "</td>";
        }
        html += "</tr>\n";
    }
    return html + "</tbody></table></div>\n";
}

}  // namespace VeltraTool
