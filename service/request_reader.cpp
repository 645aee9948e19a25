// SPDX-License-Identifier: Apache-2.0
// Each read checks one item of a hostile request: its presence, its length, its count. After the first failure nothing
// more is taken from the parcel, and every read returns 0 or empty, so a handler tests IsBad() once at the end. A count
// is checked against its bound before the loop, and elements are added one by one: a large count in a short request
// allocates next to nothing. A remote object is accepted only when the caller's own process serves it.
#include "request_reader.h"

#include <utility>

#include <tavo/calling_peer.h>

namespace TAVO::Veltra {

int32_t RequestReader::RawInt32()
{
    int32_t value = 0;
    isBad_ = isBad_ || !data_.ReadInt32(value);
    return value;
}

std::string RequestReader::RawText()
{
    std::string text;
    // Short-circuit: after a failure the parcel is not touched any more, so a later item cannot be read from a wrong
    // place.
    isBad_ = isBad_ || !data_.ReadString(text) || text.size() > MAX_REQUEST_TEXT_BYTES;
    if (isBad_) {
        return {};
    }
    return text;  // moved, not copied as it would be in a conditional expression
}

int32_t RequestReader::Int32(const char* name)
{
    const int32_t value = RawInt32();
    if (note_ != nullptr && !isBad_) {
        note_->Number(name, value);
    }
    return value;
}

int64_t RequestReader::Int64(const char* name)
{
    int64_t value = 0;
    isBad_ = isBad_ || !data_.ReadInt64(value);
    if (note_ != nullptr && !isBad_) {
        note_->Number(name, value);
    }
    return value;
}

std::string RequestReader::Text(const char* name)
{
    std::string text = RawText();
    if (note_ != nullptr && !isBad_) {
        note_->Text(name, text);
    }
    return text;
}

int32_t RequestReader::Count(int32_t least, int32_t most)
{
    const int32_t count = RawInt32();
    isBad_ = isBad_ || count < least || count > most;
    return isBad_ ? 0 : count;
}

std::vector<std::string> RequestReader::Texts(const char* name, int32_t least, int32_t most)
{
    std::vector<std::string> texts;
    const int32_t count = Count(least, most);
    for (int32_t i = 0; i < count && !isBad_; ++i) {
        texts.push_back(RawText());
    }
    if (note_ != nullptr) {
        note_->Texts(name, texts);
    }
    return texts;
}

std::map<std::string, std::string> RequestReader::TextMap(const char* name, int32_t most)
{
    std::map<std::string, std::string> pairs;
    const int32_t count = Count(0, most);
    for (int32_t i = 0; i < count && !isBad_; ++i) {
        std::string key = RawText();
        std::string value = RawText();
        // Strictly ascending, as the library writes a std::map: equal keys would hide one another.
        isBad_ = isBad_ || (!pairs.empty() && key <= pairs.rbegin()->first);
        pairs.emplace_hint(pairs.end(), std::move(key), std::move(value));
    }
    if (note_ != nullptr) {
        note_->Pairs(name, pairs);
    }
    return pairs;
}

sptr<IRemoteObject> RequestReader::Object(const std::u16string& descriptor)
{
    const sptr<IRemoteObject> object = isBad_ ? nullptr : data_.ReadRemoteObject();
    // What is kept for it goes when the caller ends, which an object of another process would not.
    isBad_ = !IsOfCaller(object) || object->Descriptor() != descriptor;
    return isBad_ ? nullptr : object;
}

}  // namespace TAVO::Veltra
