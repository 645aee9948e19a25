// SPDX-License-Identifier: Apache-2.0
// The text is checked for its size and its depth before the parser runs, since the parser recurses and a value takes
// many times its text. A node is a pointer into the parsed document, which all nodes share, with its place and its
// offset in the text; a mistake computes line and column from that offset. A mistake throws. Where all mistakes are
// wanted, Try catches those of one part and goes on with the next. Of a syntax error only the first is reported,
// because the others often follow from it.
#include "base/config_node.h"

#include <json/reader.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "utils/json_text_guard.h"

namespace TAVO::Veltra {

namespace {

constexpr char TOO_LARGE[] = "larger than 1 MiB";

// The parser's own explanation, on one line.
std::string OneLine(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(0, text.find_first_not_of("* "));
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

// The first mistake of the parser's explanation, "* Line 3, Column 5 ...": those behind it often follow from it.
ConfigMistake SyntaxMistake(const std::string& errors)
{
    ConfigMistake mistake;
    const std::string text = OneLine(errors);
    int end = 0;
    if (std::sscanf(text.c_str(), "Line %zu, Column %zu%n", &mistake.line, &mistake.column, &end) != 2) {
        return {0, 0, text};
    }
    const size_t from = std::min(text.find_first_not_of(' ', static_cast<size_t>(end)), text.size());
    const size_t next = text.find(" * Line", from);
    mistake.text = text.substr(from, next == std::string::npos ? next : next - from);
    return mistake;
}

template <typename Number>
std::string Shown(Number number)
{
    std::ostringstream text;
    text << number;
    return text.str();
}

}  // namespace

// Allocates for the bytes that are there, not for the limit: this is part of the service's start. A pipe has no size.
std::string ConfigNode::ReadText(const std::string& file)
{
    constexpr size_t PIECE_BYTES = 4096;
    std::ifstream stream(file, std::ios::binary);
    const bool isShortage = !stream.is_open() && (errno == EMFILE || errno == ENFILE);
    std::string text;
    do {
        const size_t before = text.size();
        text.resize(before + PIECE_BYTES);
        stream.read(text.data() + before, PIECE_BYTES);
        text.resize(before + static_cast<size_t>(stream.gcount()));
        // A file that grows while it is read ends at the limit.
    } while (stream.good() && text.size() <= MAX_FILE_BYTES);
    if (stream.bad() || !stream.is_open() || (text.empty() && !stream.eof())) {
        throw ConfigError(file, {0, 0, "cannot be read", isShortage});
    }
    if (text.size() > MAX_FILE_BYTES) {
        throw ConfigError(file, {0, 0, TOO_LARGE});
    }
    return text;
}

ConfigNode ConfigNode::Load(const std::string& file)
{
    return Parse(ReadText(file), file);
}

ConfigNode ConfigNode::Parse(std::string text, const std::string& name, std::vector<ConfigMistake>* mistakes)
{
    const auto document = std::make_shared<Document>();
    document->name = name;
    document->text = std::move(text);
    document->mistakes = mistakes;
    const std::string& whole = document->text;
    if (whole.size() > MAX_FILE_BYTES) {
        throw ConfigError(name, {0, 0, TOO_LARGE});
    }
    // The parser recurses: deep nesting in a command of a tool could exhaust the stack of a worker.
    if (!IsJsonSafeToParse(whole)) {
        throw ConfigError(name, {0, 0, "nested too deep"});
    }
    Json::CharReaderBuilder builder;
    // Strict: duplicate keys and trailing text are mistakes. Only comments are allowed.
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["allowComments"] = true;
    std::string errors;
    bool isParsed = false;
    try {
        const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        isParsed = reader->parse(whole.data(), whole.data() + whole.size(), &document->root, &errors);
    } catch (const Json::Exception& error) {
        errors = error.what();
    }
    if (!isParsed) {
        throw ConfigError(name, SyntaxMistake(errors));
    }
    return ConfigNode(document, &document->root, document->root.getOffsetStart(), "");
}

void ConfigNode::ExpectKeys(std::initializer_list<const char*> keys) const
{
    for (const auto& [key, node] : Members()) {
        if (std::none_of(keys.begin(), keys.end(), [&name = key](const char* known) { return name == known; })) {
            // At the place of the unknown key, so that its line is reported.
            Try([&unknown = node] { unknown.Fail("there is no such key"); });
        }
    }
}

ConfigNode ConfigNode::Member(const std::string& key) const
{
    if (!value_->isObject()) {
        Fail("is not an object");
    }
    const bool isThere = value_->isMember(key);
    const Json::Value& value = (*value_)[key];
    // A member that is missing is reported at the place of its object.
    const ptrdiff_t offset = isThere ? value.getOffsetStart() : offset_;
    ConfigNode node(document_, &value, offset, place_ + (IsTop() ? "" : ".") + key);
    if (!isThere) {
        node.Fail("is missing");
    }
    return node;
}

std::vector<std::pair<std::string, ConfigNode>> ConfigNode::Members() const
{
    if (!value_->isObject()) {
        Fail("is not an object");
    }
    std::vector<std::pair<std::string, ConfigNode>> members;
    for (const std::string& key : value_->getMemberNames()) {
        members.emplace_back(key, Member(key));
    }
    return members;
}

std::vector<ConfigNode> ConfigNode::Items(size_t most) const
{
    if (!value_->isArray()) {
        Fail("is not a list");
    }
    if (value_->size() > most) {
        Fail("has more than " + std::to_string(most) + " items");
    }
    std::vector<ConfigNode> items;
    for (Json::ArrayIndex i = 0; i < value_->size(); ++i) {
        const Json::Value& item = (*value_)[i];
        items.push_back(ConfigNode(document_, &item, item.getOffsetStart(), place_ + "[" + std::to_string(i) + "]"));
    }
    return items;
}

double ConfigNode::Number(double least, double most) const
{
    if (!value_->isNumeric()) {
        Fail("is not a number");
    }
    const double number = value_->asDouble();
    // Written so that NaN fails.
    if (!(number >= least && number <= most)) {
        Fail(Shown(number) + " is not from " + Shown(least) + " to " + Shown(most));
    }
    return number;
}

int64_t ConfigNode::Integer(int64_t least, int64_t most) const
{
    if (!value_->isInt64()) {
        Fail("is not a whole number");
    }
    const int64_t number = value_->asInt64();
    if (number < least || number > most) {
        Fail(Shown(number) + " is not from " + Shown(least) + " to " + Shown(most));
    }
    return number;
}

std::string ConfigNode::Text(size_t mostBytes) const
{
    if (!value_->isString()) {
        Fail("is not a text");
    }
    std::string text = value_->asString();
    if (text.size() > mostBytes) {
        Fail("is longer than " + std::to_string(mostBytes) + " bytes");
    }
    return text;
}

bool ConfigNode::Flag() const
{
    if (!value_->isBool()) {
        Fail("is neither true nor false");
    }
    return value_->asBool();
}

double ConfigNode::NumberOr(const char* key, double other, double least, double most) const
{
    return Has(key) ? Member(key).Number(least, most) : other;
}

int64_t ConfigNode::IntegerOr(const char* key, int64_t other, int64_t least, int64_t most) const
{
    return Has(key) ? Member(key).Integer(least, most) : other;
}

std::string ConfigNode::TextOr(const char* key, const std::string& other, size_t mostBytes) const
{
    return Has(key) ? Member(key).Text(mostBytes) : other;
}

void ConfigNode::Fail(const std::string& why) const
{
    const std::string before = document_->text.substr(0, static_cast<size_t>(offset_));
    ConfigMistake mistake;
    mistake.line = static_cast<size_t>(std::count(before.begin(), before.end(), '\n')) + 1;
    mistake.column = before.size() - (before.rfind('\n') + 1) + 1;  // without an end of line: npos + 1 is 0
    mistake.text = (IsTop() ? "" : place_ + ": ") + why;
    throw ConfigError(document_->name, mistake);
}

}  // namespace TAVO::Veltra
