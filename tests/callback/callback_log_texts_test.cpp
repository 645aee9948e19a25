// SPDX-License-Identifier: Apache-2.0
// Every line that the callback side logs, word for word, at levels that differ on purpose.
#include <new>

#include "callback/endpoints.h"
#include "support/log_lines.h"

namespace TAVO::Veltra {
namespace {

Line Debug(const char* text, const char* said = "")
{
    return {SCRIVO_DEBUG, text, said};
}

Line Received(uint32_t code)
{
    return {SCRIVO_INFO, "OnReceived, cmd = %{public}u", "OnReceived, cmd = " + std::to_string(code)};
}

class CallbackLogTexts : public Endpoints {};

TEST_F(CallbackLogTexts, Frame)
{
    for (const Target& target : Targets()) {
        SCOPED_TRACE(target.name);
        ExpectLines({"OnRemoteRequest"}, {Error("descriptor checked fail !")},
                    [&] { Send(*target.endpoint, target.code, u"x", [](MessageParcel&) {}); });
        ExpectLines({"OnRemoteRequest"}, {Received(8)}, [&] { Send(*target.endpoint, 8, target.payload); });
    }
}

struct HandlerTexts {
    uint32_t code;
    const char* operation;
    std::vector<Line> begin;  // after the frame's
    Line notWritten;
};

TEST_F(CallbackLogTexts, Handlers)
{
    const HandlerTexts handlers[] = {
        {GAME_EVENT, "OnGameCallbackEvent", {Debug("OnGameCallbackEvent")}, Error("writing parcel failed")},
        {GPU_DATA,
         "HandleGpuCounterData",
         {Info("GpuCounterCallBackStub::HandleGpuCounterData")},
         Error("writing parcel failed")},
        {PRIORITYS,
         "HandleGetAppPrioritysCallback",
         {Info("ResourcePreDownloadCallbackStub::HandleGetAppPrioritysCallback")},
         Warn("writing parcel failed")},
        {RESOURCE_INFOS,
         "HandleQueryAppResourceInfoCallback",
         {Info("ResourcePreDownloadCallbackStub::HandleQueryAppResourceInfoCallback")},
         Error("writing parcel failed")},
    };
    const std::vector<Target> targets = Targets();
    for (size_t i = 0; i < targets.size(); ++i) {
        const Target& target = targets[i];
        const HandlerTexts& texts = handlers[i];
        SCOPED_TRACE(target.name);
        std::vector<Line> lines = {Received(texts.code)};
        lines.insert(lines.end(), texts.begin.begin(), texts.begin.end());
        ExpectLines({"OnRemoteRequest", texts.operation}, lines,
                    [&] { Send(*target.endpoint, texts.code, target.payload); });
        lines.push_back(texts.notWritten);
        const char* const writer = texts.code == GAME_EVENT ? "HandleGameEvent" : texts.operation;
        ExpectLines({"OnRemoteRequest", texts.operation, writer}, lines,
                    [&] { Send(*target.endpoint, texts.code, target.payload, 0); });
        if (texts.code == GPU_DATA || texts.code == RESOURCE_INFOS) {
            lines.back() = Info("parcel read results failed.");
            ExpectLines({"OnRemoteRequest", texts.operation}, lines,
                        [&] { Send(*target.endpoint, texts.code, Items{}); });
        }
    }
    ExpectLines({"OnRemoteRequest", "HandleGetAppPrioritysCallback"}, {Received(PRIORITYS), handlers[2].begin.front()},
                [&] { Send(*resource_, PRIORITYS, {101}); });
}

TEST_F(CallbackLogTexts, CallbacksThatFail)
{
    const Line received = Received(GAME_EVENT);
    const Line event = Debug("OnGameCallbackEvent");
    const char* const failed = "callback failed, result code = %{public}d";
    result_ = [] { return 7; };
    ExpectLines({"OnRemoteRequest", "OnGameCallbackEvent"},
                {received, event, Warn(failed, "callback failed, result code = 7")},
                [&] { Send(*events_, GAME_EVENT, Items{}); });
    result_ = []() -> int32_t { throw std::bad_alloc(); };
    ExpectLines({"OnRemoteRequest", "OnGameCallbackEvent"},
                {received, event, Warn(failed, "callback failed, result code = -1")},
                [&] { Send(*events_, GAME_EVENT, Items{}); });
    ExpectLines({"OnRemoteRequest", "HandleGpuCounterData", "OnRemoteRequest"},
                {Received(GPU_DATA), Info("GpuCounterCallBackStub::HandleGpuCounterData"),
                 Debug("request ended in an exception, cmd = %{public}u", "request ended in an exception, cmd = 12")},
                [&] { Send(*gpu_, GPU_DATA, {0}); });
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
