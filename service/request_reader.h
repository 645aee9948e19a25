// SPDX-License-Identifier: Apache-2.0
// Reads the items of a request in their order and remembers the first that is missing or beyond its bounds.
#ifndef VELTRA_SERVICE_REQUEST_READER_H
#define VELTRA_SERVICE_REQUEST_READER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tavo/iremote_broker.h>
#include <tavo/message_parcel.h>

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
    explicit RequestReader(MessageParcel& data) : data_(data) {}

    bool IsBad() const { return isBad_; }

    int32_t Int32();
    int64_t Int64();
    std::string Text();
    // How many items follow; 0 unless `least` <= count <= `most`.
    int32_t Count(int32_t least, int32_t most);
    std::vector<std::string> Texts(int32_t least, int32_t most);
    // Pairs with strictly ascending keys, as a map is sent.
    std::map<std::string, std::string> TextMap(int32_t most);

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

    MessageParcel& data_;
    bool isBad_ = false;
};

}  // namespace TAVO::Veltra

#endif
