// SPDX-License-Identifier: Apache-2.0
// A JSON file that somebody wrote by hand, read strictly: every mistake is reported with the place where it stands.
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

// The text names file, place and line: "warm.json: curves.tempLevel: 9 is not from 0 to 5 (line 3)".
class ConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One value of the file. Everything but the tests throws ConfigError where the value is not what is asked for.
class ConfigNode {
public:
    static constexpr size_t MAX_FILE_BYTES = size_t{1} << 20;  // a parsed value takes 50 times the text

    static ConfigNode Load(const std::string& file);

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

    [[noreturn]] void Fail(const std::string& why) const;

private:
    struct Document {
        std::string text;
        Json::Value root;
    };

    ConfigNode(std::shared_ptr<const Document> document, const Json::Value* value, ptrdiff_t offset, std::string place)
        : document_(std::move(document)), value_(value), offset_(offset), place_(std::move(place))
    {
    }
    bool IsTop() const { return value_ == &document_->root; }

    std::shared_ptr<const Document> document_;
    const Json::Value* value_;
    ptrdiff_t offset_;  // of the value in the text, or of what should contain it
    std::string place_;
};

}  // namespace TAVO::Veltra

#endif
