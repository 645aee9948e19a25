// SPDX-License-Identifier: Apache-2.0
// The arguments of an operation as they are typed: by name (text=hello) or by position.
#ifndef VELTRA_TOOLS_CALL_ARGUMENTS_H
#define VELTRA_TOOLS_CALL_ARGUMENTS_H

#include <json/value.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace VeltraTool {

// Values that are left out are 0 or empty. Each accessor throws ToolError (usage) for a value of another kind.
class CallArguments {
public:
    // `names` are the operation's parameters in their order.
    CallArguments(const std::string& operation, const std::vector<std::string>& names,
                  const std::vector<std::string>& typed);

    std::string Text(const std::string& name) const;
    int32_t Int32(const std::string& name) const;
    int64_t Int64(const std::string& name) const;
    // "a,b": a list of texts.
    std::vector<std::string> Names(const std::string& name) const;
    // "a=1,b": texts by key; a key without '=' has an empty value.
    std::map<std::string, std::string> Pairs(const std::string& name) const;
    // A list of JSON objects; one object stands for a list of one. Empty without the argument.
    std::vector<Json::Value> Objects(const std::string& name) const;

    bool Has(const std::string& name) const { return values_.count(name) > 0; }
    // Ends the verb: the argument is not `expected`.
    [[noreturn]] void Refuse(const std::string& name, const std::string& expected) const;

private:
    std::string operation_;
    std::map<std::string, std::string> values_;
};

}  // namespace VeltraTool

#endif
