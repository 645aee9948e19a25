// SPDX-License-Identifier: Apache-2.0
// One request to the service: the frame that all of them share.
#ifndef VELTRA_IPC_SERVER_REQUEST_H
#define VELTRA_IPC_SERVER_REQUEST_H

#include <cstddef>

#include "ipc/server_codes.h"
#include "tavo/message_parcel.h"

namespace TAVO::Veltra {

// Use: WriteToken, write to `data`, one of the Send operations, read from `reply`. What fails is logged at error level
// with the text given, under the operation's name and the line of the call; texts are log formats without the prefix.
class ServerRequest {
public:
    // The flags of a MessageOption.
    static constexpr int SYNC = 0;
    static constexpr int ONE_WAY = 1;  // returns once the request is queued

    // `operation` is a literal.
    ServerRequest(const char* operation, ServerCode code, int flags = SYNC)
        : operation_(operation), code_(code), flags_(flags)
    {
    }

    bool WriteToken(const char* failedText = "write descriptor fail", int line = __builtin_LINE());

    // An Int32; payload writes are not checked, here as everywhere: a request too long for a parcel is refused by the
    // service, which cannot read it.
    void WriteCount(size_t count) { data.WriteInt32(static_cast<int32_t>(count)); }

    // False when `remote` is null (after `nullText`) or the sending failed (after `failedText`, which gets the status).
    bool Send(const sptr<IRemoteObject>& remote, const char* nullText, const char* failedText,
              int line = __builtin_LINE());
    // Without a message of its own for a null remote object, which counts as a failed sending to a dead one.
    bool Send(const sptr<IRemoteObject>& remote, const char* failedText, int line = __builtin_LINE());
    // To an object that is not null. Logs nothing, and lets exceptions pass. The status.
    int Send(IRemoteObject& remote);

    // Of the last sending: 0, a status of the platform or of the service's handler.
    int Status() const { return status_; }

    MessageParcel data;
    MessageParcel reply;

private:
    void LogError(int line, const char* text, int value = 0) const;

    const char* const operation_;
    const ServerCode code_;
    const int flags_;
    int status_ = 0;
};

}  // namespace TAVO::Veltra

#endif
