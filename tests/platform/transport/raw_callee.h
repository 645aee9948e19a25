// SPDX-License-Identifier: Apache-2.0
// Raw peers that own an object which the test process calls.
#ifndef VELTRA_TESTS_TRANSPORT_RAW_CALLEE_H
#define VELTRA_TESTS_TRANSPORT_RAW_CALLEE_H

#include <functional>
#include <string>

#include "platform/transport/test_object.h"
#include "support/process.h"
#include "support/raw_peer.h"

namespace TransportTest {

using TestSupport::Bytes;
using TestSupport::Child;
using TestSupport::LinePipe;
using TestSupport::RawFrame;
using TestSupport::RawHello;
using TestSupport::RawPeer;
using TestSupport::RawRecord;
using TestSupport::RawSocket;

// A request to an object of the test processes.
inline RawFrame RequestFor(TestCode code, uint64_t serial = 0, uint64_t number = 1)
{
    RawFrame frame;
    frame.codeOrStatus = static_cast<uint32_t>(code);
    frame.serial = serial;
    frame.number = number;
    return frame;
}

// The right answer to an echo request.
inline RawFrame EchoReply(const RawFrame& request)
{
    RawFrame reply;
    reply.kind = RawFrame::REPLY;
    reply.number = request.number;
    reply.data = request.data;
    return reply;
}

// Has the manager keep a reference to object `serial` of `raw` under `name`; opens the session.
inline bool IntroduceObject(RawPeer& raw, const std::string& name, uint64_t serial = 1)
{
    raw.Listen();
    if (!raw.OpenSession()) {
        return false;
    }
    RawFrame keep = RequestFor(TestCode::KEEP);
    keep.String(name).Reference(raw.Instance(), serial, u"raw.Object");
    const auto answer = raw.CallOnce(keep);
    return answer && answer->Status() == TAVO::IPC_OK;
}

// Offers descriptor `fd` of this process for a lane of the other one, which has handled the offer when this returns.
inline bool OfferMemory(RawPeer& raw, uint64_t lane, int fd)
{
    return raw.Control().Send(RawRecord{RawRecord::RING, 0, lane, static_cast<uint64_t>(fd)}.Encode()) && raw.Ping();
}

// A forked raw peer whose object the manager keeps under `name` once StartCallee has returned true; then `script` runs
// there. To be made before this process uses the platform.
inline Child ForkCallee(const std::string& runtimeDir, const std::string& name,
                        const std::function<void(RawPeer& raw)>& script)
{
    return Child::Fork([=](LinePipe& parent) {
        RawPeer raw(runtimeDir);
        if (!parent.Receive() || !IntroduceObject(raw, name)) {
            return 1;
        }
        parent.Send("ready");
        script(raw);
        return 0;
    });
}

inline bool StartCallee(Child& callee)
{
    return callee.Ask("go") == "ready";
}

// Accepts lanes one after the other and passes each request on them to `answer`, which may send any bytes.
inline void ServeLanes(RawPeer& raw, const std::function<void(RawSocket& lane, const RawFrame& request)>& answer)
{
    RawHello hello;
    for (RawSocket lane = raw.Accept(hello); lane.IsOpen(); lane = raw.Accept(hello)) {
        while (const auto request = lane.ReceiveFrame()) {
            answer(lane, *request);
            if (!lane.IsOpen()) {
                break;
            }
        }
        lane.Close();
    }
}

}  // namespace TransportTest

#endif
