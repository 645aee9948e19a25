// SPDX-License-Identifier: Apache-2.0
// Takes the texts of games and names of the machine out of a record.
#ifndef VELTRA_TOOLS_REDACTOR_H
#define VELTRA_TOOLS_REDACTOR_H

#include <json/value.h>

#include <map>
#include <string>

namespace VeltraTool {

// Replaces each text by a token: equal texts of one recording have equal tokens, from which the text cannot be found
// out. Names that the service itself gives (operations, keys, what a command does, "deviceState") stay.
class Redactor {
public:
    void Redact(Json::Value& record);

private:
    std::string TokenOf(const std::string& text);
    void RedactCommand(Json::Value& command);
    void RedactTexts(Json::Value& value, bool isMap);

    std::map<std::string, std::string> tokens_;
};

}  // namespace VeltraTool

#endif
