// SPDX-License-Identifier: Apache-2.0
// A JSON file that is written by hand, read strictly: every mistake is reported with its place.
#ifndef VELTRA_SERVICE_CONFIG_NODE_H
#define VELTRA_SERVICE_CONFIG_NODE_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace TAVO::Veltra {

struct ConfigMistake {
    size_t line = 0;          // from 1; 0: of the file as a whole
    size_t column = 0;        // from 1, in bytes
    std::string text;         // with its place in the document: "curves.tempLevel: 9 is not from 0 to 5"
    bool isShortage = false;  // no descriptor was left to open the file: a later attempt may succeed
};

// The text names file, place and line: "warm.json: curves.tempLevel: 9 is not from 0 to 5 (line 3)".
class ConfigError : public std::runtime_error {
public:
    ConfigError(const std::string& file, const ConfigMistake& mistake)
        : std::runtime_error(file + ": " + mistake.text +
                             (mistake.line == 0 ? "" : " (line " + std::to_string(mistake.line) + ")")),
          mistake_(mistake)
    {
    }
    const ConfigMistake& Mistake() const { return mistake_; }

private:
    ConfigMistake mistake_;
};

// One value of the file. All functions but Has and Is... throw ConfigError if the value is not of the expected kind.
class ConfigNode {
public:
    static constexpr size_t MAX_FILE_BYTES = size_t{1} << 20;  // a parsed value takes 50 times the text

    static ConfigNode Load(const std::string& file);
    // The same of a text, which errors call `name`. With `mistakes`, those of the parts that are read through Try are
    // added there, so that all of them are found and not the first one only.
    static ConfigNode Parse(std::string text, const std::string& name, std::vector<ConfigMistake>* mistakes = nullptr);
    // The whole file. Throws ConfigError when it cannot be read or is longer than MAX_FILE_BYTES.
    static std::string ReadText(const std::string& file);

    // Calls `read`, which reads a part of the document. While mistakes are collected, the first one in that part is,
    // and the rest of the document is still read.
    template <typename Read>
    void Try(Read read) const
    {
        try {
            read();
        } catch (const ConfigError& error) {
            if (document_->mistakes == nullptr) {
                throw;
            }
            document_->mistakes->push_back(error.Mistake());
        }
    }

    bool IsNumber() const { return value_->isNumeric(); }
    bool Has(const char* key) const { return value_->isObject() && value_->isMember(key); }

    // Refuses keys other than these: a misspelt one must not be overlooked.
    void ExpectKeys(std::initializer_list<const char*> keys) const;
    ConfigNode Member(const std::string& key) const;
    std::vector<std::pair<std::string, ConfigNode>> Members() const;
    std::vector<ConfigNode> Items(size_t most) const;

    double Number(double least, double most) const;
    int64_t Integer(int64_t least, int64_t most) const;
    std::string Text(size_t mostBytes) const;
    bool Flag() const;

    // The member `key`, or `other` when there is none.
    double NumberOr(const char* key, double other, double least, double most) const;
    int64_t IntegerOr(const char* key, int64_t other, int64_t least, int64_t most) const;
    std::string TextOr(const char* key, const std::string& other, size_t mostBytes) const;

    const Json::Value& Value() const { return *value_; }

    [[noreturn]] void Fail(const std::string& why) const;

private:
    struct Document {
        std::string name;
        std::string text;
        Json::Value root;
        std::vector<ConfigMistake>* mistakes = nullptr;  // null: the first one ends the reading
    };

    ConfigNode(std::shared_ptr<const Document> document, const Json::Value* value, ptrdiff_t offset, std::string place)
        : document_(std::move(document)), value_(value), offset_(offset), place_(std::move(place))
    {
    }
    bool IsTop() const { return value_ == &document_->root; }

    std::shared_ptr<const Document> document_;
    const Json::Value* value_;
    ptrdiff_t offset_;   // of the value in the text, or of what should contain it
    std::string place_;  // "curves.tempLevel"; empty: the document itself
};

}  // namespace TAVO::Veltra

#endif
