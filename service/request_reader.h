// SPDX-License-Identifier: Apache-2.0
// Reads the items of a request in their order and remembers the first that is missing or beyond its bounds.
#ifndef VELTRA_SERVICE_REQUEST_READER_H
#define VELTRA_SERVICE_REQUEST_READER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tavo/iremote_broker.h>
#include <tavo/message_parcel.h>

#include "watch/note.h"

namespace TAVO::Veltra {

// Bounds of what one request may hold. Requests that need more are refused whole.
constexpr size_t MAX_REQUEST_TEXT_BYTES = 65536;
constexpr int32_t MAX_DETAILS = 64;             // of a GetDeviceInfo query
constexpr int32_t MAX_DETAIL_PARAMS = 64;       // of each of them
constexpr int32_t MAX_FUNCTION_QUERIES = 100;   // pairs asked of GetSystemFunctionStatus
constexpr int32_t MAX_BUNDLE_NAMES = 1000;      // of a resource or priority query
constexpr int32_t MAX_DOWNLOAD_RESULTS = 1000;  // of one NotifyAppResourceDownLoadResults

// After a failure everything else reads as 0 or empty, so a caller tests IsBad() once, before it acts.
class RequestReader {
public:
    // `note` gets what is read under the names of the arguments; null: there is no watcher.
    explicit RequestReader(MessageParcel& data, Note* note = nullptr) : data_(data), note_(note) {}

    bool IsBad() const { return isBad_; }
    Note* GetNote() const { return note_; }

    int32_t Int32(const char* name);
    int64_t Int64(const char* name);
    std::string Text(const char* name);
    // How many items follow; 0 unless `least` <= count <= `most`.
    int32_t Count(int32_t least, int32_t most);
    std::vector<std::string> Texts(const char* name, int32_t least, int32_t most);
    // Pairs with strictly ascending keys, as a map is sent.
    std::map<std::string, std::string> TextMap(const char* name, int32_t most);
    // A record of the game's own encoding; null, and bad, when it does not decode.
    template <typename T>
    std::unique_ptr<T> Record()
    {
        std::unique_ptr<T> record = isBad_ ? nullptr : data_.ReadParcelable<T>();
        isBad_ = record == nullptr;
        return record;
    }
    // Items that are one object of the arguments.
    template <typename Read>
    void Object(const char* name, Read read)
    {
        if (note_ != nullptr) {
            note_->Begin(name);
        }
        read();
        if (note_ != nullptr) {
            note_->End();
        }
    }
    // A list of `count` objects, each read by `read(i)`, or until one is bad.
    template <typename Read>
    void Objects(const char* name, int32_t count, Read read)
    {
        if (note_ != nullptr) {
            note_->BeginList(name, static_cast<size_t>(count));
        }
        for (int32_t i = 0; i < count && !isBad_; ++i) {
            if (note_ != nullptr) {
                note_->BeginItem(static_cast<size_t>(i));
            }
            read();
            if (note_ != nullptr) {
                note_->EndItem();
            }
        }
        if (note_ != nullptr) {
            note_->End();
        }
    }

    // A callback object of the caller's process that serves T. Null for a good one, too, where this process has no
    // proxy class for T.
    template <typename T>
    sptr<T> Callback()
    {
        const sptr<IRemoteObject> object = Object(T::GetDescriptor());
        return object == nullptr ? nullptr : iface_cast<T>(object);
    }

private:
    sptr<IRemoteObject> Object(const std::u16string& descriptor);
    int32_t RawInt32();
    std::string RawText();

    MessageParcel& data_;
    Note* const note_;
    bool isBad_ = false;
};

}  // namespace TAVO::Veltra

#endif
