// SPDX-License-Identifier: Apache-2.0
// Writes the items of a reply in their order, for the sender of the request and for watchers.
#ifndef VELTRA_SERVICE_REPLY_WRITER_H
#define VELTRA_SERVICE_REPLY_WRITER_H

#include <cstdint>
#include <map>
#include <string>

#include <tavo/message_parcel.h>

#include "watch/note.h"

namespace TAVO::Veltra {

// Each write is false when the parcel does not take it.
class ReplyWriter {
public:
    // `note` is null without a watcher.
    ReplyWriter(MessageParcel& reply, Note* note) : reply_(reply), note_(note) {}

    // The code of a reply that goes on, which is no value of it.
    bool Done() { return reply_.WriteInt32(0); }
    bool Int32(const char* name, int32_t value)
    {
        if (note_ != nullptr) {
            note_->Number(name, value);
        }
        return reply_.WriteInt32(value);
    }
    bool Text(const char* name, const std::string& text)
    {
        if (note_ != nullptr) {
            note_->Text(name, text);
        }
        return reply_.WriteString(text);
    }
    // A text of the service's own that is JSON on one line.
    bool Document(const char* name, const std::string& document)
    {
        if (note_ != nullptr) {
            note_->Document(name, document);
        }
        return reply_.WriteString(document);
    }
    template <typename Value>
    bool Pairs(const char* name, const std::map<std::string, Value>& pairs)
    {
        if (note_ != nullptr) {
            note_->Pairs(name, pairs);
        }
        bool isWritten = reply_.WriteInt32(static_cast<int32_t>(pairs.size()));
        for (const auto& [key, value] : pairs) {
            isWritten = isWritten && reply_.WriteString(key) && Write(value);
        }
        return isWritten;
    }

private:
    bool Write(const std::string& text) { return reply_.WriteString(text); }
    bool Write(bool flag) { return reply_.WriteBool(flag); }

    MessageParcel& reply_;
    Note* const note_;
};

}  // namespace TAVO::Veltra

#endif
