// SPDX-License-Identifier: Apache-2.0
// Every line that the callback side logs, word for word, at levels that differ on purpose.
#include <new>

#include "callback/endpoints.h"
#include "support/log_capture.h"

namespace TAVO::Veltra {
namespace {

Line Received(uint32_t code)
{
    return Info("OnReceived, cmd = %{public}u", {std::to_string(code)});
}

class CallbackLogTexts : public Endpoints {};

TEST_F(CallbackLogTexts, RequestsAndRefusals)
{
    const struct {
        const char* operation;
        Line begin;  // after the frame's
        Line notWritten;
    } handlers[] = {
        {"OnGameCallbackEvent", Debug("OnGameCallbackEvent"), Error("writing parcel failed")},
        {"HandleGpuCounterData", Info("GpuCounterCallBackStub::HandleGpuCounterData"), Error("writing parcel failed")},
        {"HandleGetAppPrioritysCallback", Info("ResourcePreDownloadCallbackStub::HandleGetAppPrioritysCallback"),
         Warn("writing parcel failed")},
        {"HandleQueryAppResourceInfoCallback",
         Info("ResourcePreDownloadCallbackStub::HandleQueryAppResourceInfoCallback"), Error("writing parcel failed")},
    };
    const std::vector<Target> targets = Targets();
    for (size_t i = 0; i < targets.size(); ++i) {
        const Target& target = targets[i];
        const char* const operation = handlers[i].operation;
        const Line& begin = handlers[i].begin;
        SCOPED_TRACE(target.name);
        ExpectLines({"OnRemoteRequest"}, {Error("descriptor checked fail !")},
                    [&] { Send(*target.endpoint, target.code, u"x", [](MessageParcel&) {}); });
        ExpectLines({"OnRemoteRequest"}, {Received(8)}, [&] { Send(*target.endpoint, 8, target.payload); });
        ExpectLines({"OnRemoteRequest", operation}, {Received(target.code), begin},
                    [&] { Send(*target.endpoint, target.code, target.payload); });
        ExpectLines({"OnRemoteRequest", operation, target.code == GAME_EVENT ? "HandleGameEvent" : operation},
                    {Received(target.code), begin, handlers[i].notWritten},
                    [&] { Send(*target.endpoint, target.code, target.payload, 0); });
        if (target.code == GPU_DATA || target.code == RESOURCE_INFOS) {
            ExpectLines({"OnRemoteRequest", operation},
                        {Received(target.code), begin, Info("parcel read results failed.")},
                        [&] { Send(*target.endpoint, target.code, Items{}); });
        }
    }
    ExpectLines({"OnRemoteRequest", handlers[2].operation}, {Received(PRIORITYS), handlers[2].begin},
                [&] { Send(*resource_, PRIORITYS, {101}); });
}

TEST_F(CallbackLogTexts, CallbacksThatFail)
{
    for (const std::string value : {"7", "-1"}) {
        result_ = [value]() -> int32_t { return value == "7" ? 7 : throw std::bad_alloc(); };
        ExpectLines({"OnRemoteRequest", "OnGameCallbackEvent"},
                    {Received(GAME_EVENT), Debug("OnGameCallbackEvent"),
                     Warn("callback failed, result code = %{public}d", {value})},
                    [&] { Send(*events_, GAME_EVENT, Items{}); });
    }
    ExpectLines({"OnRemoteRequest", "HandleGpuCounterData"},
                {Received(GPU_DATA), Info("GpuCounterCallBackStub::HandleGpuCounterData")},
                [&] { EXPECT_THROW(Send(*gpu_, GPU_DATA, {0}), std::bad_alloc); });
    ExpectLines({"AddCallback"}, {Warn("the callback from framework is nullptr")},
                [&] { events_->AddCallback(nullptr, 1); });
    ExpectLines({""}, {}, [&] {
        gpu_->SetProcessCallback(nullptr);
        resource_->SetGetAppPrioritysCallback(nullptr);
        resource_->SetQueryAppResourceInfoCallback(nullptr);
        events_->RemoveCallback(9);
    });
}

}  // namespace
}  // namespace TAVO::Veltra
