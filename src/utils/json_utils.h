// SPDX-License-Identifier: Apache-2.0
// Helpers over JsonCpp: text and files to values and back, and typed lookups with a default.
#ifndef VELTRA_UTILS_JSON_UTILS_H
#define VELTRA_UTILS_JSON_UTILS_H

#include <json/value.h>

#include <cstdint>
#include <string>

#include "veltra_export.h"

namespace TAVO::Veltra {

// Stateless, any thread, silent; nothing is thrown. A text nested beyond 1000 levels, or too deep for what is left of
// the calling thread's stack (600 bytes a level and 16 KiB), counts as one that does not parse. There is no limit of
// length: a value takes up to 50 bytes for each byte of text.
class VELTRA_EXPORT JsonUtils {
public:
    // Writes `value` to the file, made or emptied first, indented by tabs. Every failure is silent.
    static void WriteFileFromJsonValue(const std::string& path, Json::Value& value);
    // Reads the file into `value`; false when it cannot be opened or does not parse, `value` is then as the parser left
    // it.
    static bool GetJsonValueFromFile(const std::string& path, Json::Value& value);
    // The value of `text`. Of a text that does not parse, what the parser had understood until then: often null, but a
    // text that was cut off yields its beginning. Test with empty() and isObject().
    static Json::Value StringToJson(const std::string& text);
    // The same by the older, slightly stricter reader, with a result. An empty text is true and leaves `value` alone.
    static bool Parse(const std::string& text, Json::Value& value);

    // Deliberate: the two differ in their text. Of a changeable value: one line with a line break at its end, without
    // the comments that a parsed text had.
    static std::string JsonToString(Json::Value& value);
    // Of a constant value: one line without breaks of its own, comments included.
    static std::string JsonToString(const Json::Value& value);

    // The member `key` of `object`; the default when `object` is not an object, has no such member or one of another
    // type. A number with an integral value that fits is an integer (5.0 is, 3000000000 is no int32_t); a bool is
    // neither number nor string. `object` is never changed.
    static int32_t GetInt(Json::Value& object, std::string key, int32_t defaultValue);
    static int64_t GetInt64(Json::Value& object, std::string key, int64_t defaultValue);
    static std::string GetString(Json::Value& object, std::string key, std::string defaultValue);
    static bool GetBool(Json::Value& object, std::string key, bool defaultValue);
};

}  // namespace TAVO::Veltra

#endif
