// SPDX-License-Identifier: Apache-2.0
// The sixteen operations of the facade, as the tool calls them.
#ifndef VELTRA_TOOLS_CALL_OPERATIONS_H
#define VELTRA_TOOLS_CALL_OPERATIONS_H

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "call_arguments.h"
#include "veltra_server_client.h"

namespace VeltraTool {

struct CallResult {
    std::optional<int32_t> code;  // empty: the operation reports none
    Json::Value answer;           // what it returned besides; null: nothing
};

enum class Answers { NONE, ONE, STREAM };  // what comes to the operation's callback later

struct CallOperation {
    const char* name;
    std::vector<std::string> parameters;  // as the facade's header calls them, or fields of its records
    const char* what;
    Answers answers;
    CallResult (*call)(TAVO::Veltra::VeltraClient& client, const CallArguments& arguments);
    // Ends what `call` began; null: there is nothing to end.
    void (*end)(TAVO::Veltra::VeltraClient& client, const CallArguments& arguments);
};

const std::vector<CallOperation>& CallOperations();

}  // namespace VeltraTool

#endif
