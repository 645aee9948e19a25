// SPDX-License-Identifier: Apache-2.0
#include "base/config_node.h"

#include <json/reader.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "utils/json_text_guard.h"

namespace TAVO::Veltra {

namespace {

// Takes memory for what the file holds, not for what it may hold: this is part of the service's start.
std::string ReadFile(const std::string& file)
{
    constexpr size_t PIECE_BYTES = 4096;
    std::ifstream stream(file, std::ios::binary);
    std::string text;
    do {
        const size_t before = text.size();
        text.resize(before + PIECE_BYTES);
        stream.read(text.data() + before, PIECE_BYTES);
        text.resize(before + static_cast<size_t>(stream.gcount()));
    } while (stream.good() && text.size() <= ConfigNode::MAX_FILE_BYTES);
    if (stream.bad() || !stream.is_open() || (text.empty() && !stream.eof())) {
        throw ConfigError(file + ": cannot be read");
    }
    if (text.size() > ConfigNode::MAX_FILE_BYTES) {
        throw ConfigError(file + ": larger than 1 MiB");
    }
    return text;
}

// The parser's own explanation, on one line.
std::string OneLine(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(0, text.find_first_not_of("* "));
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

template <typename Number>
std::string Shown(Number number)
{
    std::ostringstream text;
    text << number;
    return text.str();
}

}  // namespace

ConfigNode ConfigNode::Load(const std::string& file)
{
    const auto document = std::make_shared<Document>();
    document->text = ReadFile(file);
    const std::string& text = document->text;
    if (!IsJsonSafeToParse(text)) {
        throw ConfigError(file + ": nested too deep");
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["allowComments"] = true;
    std::string errors;
    bool isParsed = false;
    try {
        const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        isParsed = reader->parse(text.data(), text.data() + text.size(), &document->root, &errors);
    } catch (const Json::Exception& error) {
        errors = error.what();
    }
    if (!isParsed) {
        throw ConfigError(file + ": " + OneLine(errors));
    }
    return ConfigNode(document, &document->root, document->root.getOffsetStart(), file + ": ");
}

void ConfigNode::ExpectKeys(std::initializer_list<const char*> keys) const
{
    for (const auto& [key, node] : Members()) {
        if (std::none_of(keys.begin(), keys.end(), [&name = key](const char* known) { return name == known; })) {
            node.Fail("there is no such key");
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
    const auto end = document_->text.begin() + offset_;
    const auto line = std::count(document_->text.begin(), end, '\n') + 1;
    throw ConfigError((IsTop() ? place_ + "the file " : place_ + ": ") + why + " (line " + std::to_string(line) + ")");
}

}  // namespace TAVO::Veltra
