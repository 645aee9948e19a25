// SPDX-License-Identifier: Apache-2.0
#include "base/json_text.h"

#include <json/writer.h>

namespace TAVO::Veltra {

std::string JsonText(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    // One line: answers of the control interface are lines of JSON for tools.
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

}  // namespace TAVO::Veltra
