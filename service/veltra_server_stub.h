// SPDX-License-Identifier: Apache-2.0
// The receiving end of IVeltraServerInterface: takes requests apart, calls the operation, writes its reply.
#ifndef VELTRA_SERVICE_VELTRA_SERVER_STUB_H
#define VELTRA_SERVICE_VELTRA_SERVER_STUB_H

#include <cstdint>

#include <tavo/iremote_stub.h>

#include "ipc/iveltra_server_interface.h"
#include "reply_writer.h"
#include "request_reader.h"
#include "watch/call_counts.h"
#include "watch/watch_hub.h"

namespace TAVO::Veltra {

// A request is decoded whole before its operation is called; one that is short or out of bounds calls nothing and is
// answered with SERVICE_BAD_REQUEST. Data behind the last item is ignored. Refusals travel as the reply's Int32 where
// the reply begins with a code, else as the status that the sender's SendRequest returns.
class VeltraServerStub : public IRemoteStub<IVeltraServerInterface> {
public:
    // Statuses: 0; RESULT_TOKEN_REFUSED for a token of another interface; a refusal as above; RESULT_BAD_PARCEL when
    // the reply does not take what belongs in it; the platform's for codes that are no request of the interface. An
    // operation that ends in an exception counts as a refusal with SERVICE_NO_RESOURCES.
    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

    const CallCounts& Counts() const { return counts_; }

protected:
    // Around each request that carries the right token. BeforeRequest gives 0, or a refusal: the request is not read.
    virtual int32_t BeforeRequest(ServerCode) { return 0; }
    virtual void AfterReply(ServerCode, MessageParcel&) {}
    // Receives a record of each request; null: there is no watcher.
    virtual WatchHub* Watching() { return nullptr; }

private:
    // `record` is null without a watcher. A handler returns 0, a refusal, or RESULT_BAD_PARCEL after it began its
    // reply. The frame writes the value as the code of a reply that is still empty, and returns it as the status where
    // it is no part of the reply.
    using Handler = int32_t (VeltraServerStub::*)(RequestReader& request, ReplyWriter& reply);
    struct Request {
        ServerCode code;
        Handler handler;
        bool leadsWithCode;  // the reply begins with an Int32 result
    };
    struct Answered {
        int status;
        int32_t result;  // also where it travels in the reply
    };
    static const Request* Find(uint32_t code);
    Answered Count(const Request& request, MessageParcel& data, MessageParcel& reply, WatchRecord* record);
    Answered Answer(const Request& request, MessageParcel& data, MessageParcel& reply, WatchRecord* record);
    Answered AnswerWatched(WatchHub& watch, const Request& request, MessageParcel& data, MessageParcel& reply);
    Answered Perform(const Request& request, MessageParcel& data, MessageParcel& reply, WatchRecord* record);

    int32_t HandleReportGameEvent(RequestReader& request, ReplyWriter& reply);
    int32_t HandleNotifyGameEvent(RequestReader& request, ReplyWriter& reply);
    int32_t HandleSyncAppType(RequestReader& request, ReplyWriter& reply);
    int32_t HandleReportRenderThread(RequestReader& request, ReplyWriter& reply);
    int32_t HandleRegisterCallBack(RequestReader& request, ReplyWriter& reply);
    int32_t HandleUnRegisterCallBack(RequestReader& request, ReplyWriter& reply);
    int32_t HandleUpdateGameInfo(RequestReader& request, ReplyWriter& reply);
    int32_t HandleCallAuth(RequestReader& request, ReplyWriter& reply);
    int32_t HandleStartGetGpuPerfInfo(RequestReader& request, ReplyWriter& reply);
    int32_t HandleStopGetGpuPerfInfo(RequestReader& request, ReplyWriter& reply);
    int32_t HandleRegisterCallbackForGraphic(RequestReader& request, ReplyWriter& reply);

    // Requests and replies with lists: veltra_server_stub_collections.cpp.
    int32_t HandleGetDeviceInfo(RequestReader& request, ReplyWriter& reply);
    int32_t HandleGetAppPrioritys(RequestReader& request, ReplyWriter& reply);
    int32_t HandleQueryAppResourceInfos(RequestReader& request, ReplyWriter& reply);
    int32_t HandleNotifyAppResourceDownLoadResults(RequestReader& request, ReplyWriter& reply);
    int32_t HandleGetSystemFunctionStatus(RequestReader& request, ReplyWriter& reply);
    int32_t HandleQueryGameState(RequestReader& request, ReplyWriter& reply);

    CallCounts counts_;
};

}  // namespace TAVO::Veltra

#endif
