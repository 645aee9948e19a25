// SPDX-License-Identifier: Apache-2.0
// A parcel that is sent: adds interface tokens and references to remote objects.
#ifndef TAVO_MESSAGE_PARCEL_H
#define TAVO_MESSAGE_PARCEL_H

#include <string>
#include <string_view>
#include <vector>

#include "tavo/iremote_object.h"
#include "tavo/parcel.h"

namespace TAVO {

class TAVO_EXPORT MessageParcel : public Parcel {
public:
    // Largest number of references in one message.
    static constexpr size_t MAX_OBJECTS = 1024;

    MessageParcel() noexcept = default;
    ~MessageParcel() override;

    // The name of the interface that a request is meant for, first in every request; a String16.
    bool WriteInterfaceToken(std::u16string_view token) { return WriteString16(token); }
    std::u16string ReadInterfaceToken() { return ReadString16(); }
    // The same without a copy: whether the next item is this token.
    bool MatchInterfaceToken(std::u16string_view token) { return MatchString16(token); }

    // The parcel keeps a strong reference while it lives. False, and nothing written, for null, beyond the capacity
    // or beyond MAX_OBJECTS.
    bool WriteRemoteObject(const sptr<IRemoteObject>& object);
    // The next item as an object: the local object if it belongs to this process, else this process's one proxy of it,
    // dead or alive. Null, and no move of the cursor, if the next item is not a reference. Never waits.
    sptr<IRemoteObject> ReadRemoteObject();

private:
    friend class ParcelAccess;

    struct Reference {
        uint32_t offset;  // of the reference's slots in the data
        sptr<IRemoteObject> object;
    };
    std::vector<Reference> references_;  // ascending offsets
};

}  // namespace TAVO

#endif
