// SPDX-License-Identifier: Apache-2.0
// JSON values as texts on one line.
#ifndef VELTRA_SERVICE_JSON_TEXT_H
#define VELTRA_SERVICE_JSON_TEXT_H

#include <json/value.h>

#include <string>

namespace TAVO::Veltra {

// ASCII only, whatever the texts in `value` are: other characters are escaped, what is no UTF-8 is replaced.
std::string JsonText(const Json::Value& value);

}  // namespace TAVO::Veltra

#endif
