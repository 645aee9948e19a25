// SPDX-License-Identifier: Apache-2.0
// Assigns what was typed to the parameters of an operation, and turns it into their types. A word "NAME=VALUE" goes to
// the parameter NAME; any other word to the first parameter that has none yet. A NAME that the operation does not have
// is an error and not a value: it is more often misspelt than meant.
#include "call_arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>

#include "exit_code.h"
#include "output.h"
#include "utils/json_utils.h"

namespace VeltraTool {

namespace {

// The NAME of "NAME=VALUE"; empty for any other word.
std::string NameIn(const std::string& word)
{
    const auto end = std::find_if(word.begin(), word.end(),
                                  [](unsigned char letter) { return std::isalnum(letter) == 0 && letter != '_'; });
    // Only letters, digits and underscores: "a=b" in a text that begins with another sign stays a text.
    return end != word.end() && *end == '=' ? std::string(word.begin(), end) : "";
}

std::string List(const std::vector<std::string>& names)
{
    std::string list;
    for (const std::string& name : names) {
        list += (list.empty() ? "" : ", ") + name;
    }
    return list.empty() ? "none" : list;
}

template <typename Number>
bool ParseNumber(const std::string& text, Number& number)
{
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

}  // namespace

CallArguments::CallArguments(const std::string& operation, const std::vector<std::string>& names,
                             const std::vector<std::string>& typed)
    : operation_(operation)
{
    for (const std::string& word : typed) {
        std::string name = NameIn(word);
        std::string value = name.empty() ? word : word.substr(name.size() + 1);
        // Positions count only the parameters that were not given by name before.
        if (name.empty()) {
            const auto next = std::find_if(names.begin(), names.end(), [this](const auto& each) { return !Has(each); });
            if (next == names.end()) {
                throw ToolError(EXIT_USAGE, operation + " takes no more arguments: '" + Escaped(word) + "'",
                                "its arguments: " + List(names));
            }
            name = *next;
        } else if (std::find(names.begin(), names.end(), name) == names.end()) {
            throw ToolError(EXIT_USAGE, operation + " has no argument '" + name + "'", "its arguments: " + List(names));
        }
        values_[name] = std::move(value);
    }
}

std::string CallArguments::Text(const std::string& name) const
{
    const auto found = values_.find(name);
    return found == values_.end() ? "" : found->second;
}

int32_t CallArguments::Int32(const std::string& name) const
{
    const int64_t number = Int64(name);
    if (number < std::numeric_limits<int32_t>::min() || number > std::numeric_limits<int32_t>::max()) {
        Refuse(name, "a number of 32 bits");
    }
    return static_cast<int32_t>(number);
}

int64_t CallArguments::Int64(const std::string& name) const
{
    int64_t number = 0;
    if (Has(name) && !ParseNumber(Text(name), number)) {
        Refuse(name, "a whole number");
    }
    return number;
}

std::vector<std::string> CallArguments::Names(const std::string& name) const
{
    std::vector<std::string> names;
    std::string rest = Text(name);
    while (!rest.empty()) {
        const size_t comma = std::min(rest.find(','), rest.size());
        names.push_back(rest.substr(0, comma));
        rest.erase(0, comma + 1);
    }
    return names;
}

std::map<std::string, std::string> CallArguments::Pairs(const std::string& name) const
{
    std::map<std::string, std::string> pairs;
    for (const std::string& item : Names(name)) {
        const size_t end = item.find('=');
        pairs[item.substr(0, end)] = end == std::string::npos ? "" : item.substr(end + 1);
    }
    return pairs;
}

std::vector<Json::Value> CallArguments::Objects(const std::string& name) const
{
    if (!Has(name)) {
        return {};
    }
    Json::Value value;
    if (!TAVO::Veltra::JsonUtils::Parse(Text(name), value) || !(value.isObject() || value.isArray())) {
        Refuse(name, "a JSON object or a list of them");
    }
    // One object stands for a list of one.
    if (value.isObject()) {
        return {value};
    }
    std::vector<Json::Value> objects(value.begin(), value.end());
    if (!std::all_of(objects.begin(), objects.end(), [](const Json::Value& each) { return each.isObject(); })) {
        Refuse(name, "a list of JSON objects");
    }
    return objects;
}

void CallArguments::Refuse(const std::string& name, const std::string& expected) const
{
    throw ToolError(EXIT_USAGE,
                    operation_ + ": '" + Escaped(Text(name)) + "' is not " + expected + ", as " + name + " must be");
}

}  // namespace VeltraTool
