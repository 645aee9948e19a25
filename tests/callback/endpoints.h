// SPDX-License-Identifier: Apache-2.0
// One endpoint of each kind, the requests that reach them, and what their callbacks saw.
#ifndef VELTRA_TESTS_CALLBACK_ENDPOINTS_H
#define VELTRA_TESTS_CALLBACK_ENDPOINTS_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "callback/game_event_callback.h"
#include "callback/gpu_counter_call_back.h"
#include "callback/resource_pre_download_callback.h"
#include "support/game_callbacks.h"
#include "support/parcel_items.h"

namespace TAVO::Veltra {

constexpr uint32_t GAME_EVENT = 7;
constexpr uint32_t GPU_DATA = 12;
constexpr uint32_t PRIORITYS = 16;
constexpr uint32_t RESOURCE_INFOS = 18;

// The outcome of one request.
struct Outcome {
    int status = 0;
    Items reply = {};  // empty, or the one Int32

    bool operator==(const Outcome& other) const = default;
};

Outcome Send(IPCObjectStub& endpoint, uint32_t code, const std::u16string& token,
             const std::function<void(MessageParcel&)>& write, size_t replyCapacity = Parcel::MAX_DATA_BYTES);
// With the right token.
Outcome Send(IPCObjectStub& endpoint, uint32_t code, const Items& payload,
             size_t replyCapacity = Parcel::MAX_DATA_BYTES);

// `present` records behind the flag 1 and `announced`; the one at `nullAt` is missing behind a marker of 0.
Items GpuItems(int32_t announced, int32_t present, int32_t nullAt = -1);
Items ResourceItems(int32_t announced, int32_t present, int32_t nullAt = -1);

// The endpoints with a callback each, which counts its calls, keeps what it got and returns `result`.
class Endpoints : public testing::Test {
protected:
    Endpoints();

    struct Target {
        const char* name;
        IPCObjectStub* endpoint;
        uint32_t code;
        Items payload;  // that the handler takes
    };
    std::vector<Target> Targets() const;

    template <typename Value>
    int32_t Keep(Value& place, const Value& value)
    {
        ++calls_;
        place = value;
        return result_();
    }

    int calls_ = 0;
    std::function<int32_t()> result_ = [] { return 0; };
    GameCallbackEventInfo event_;
    std::vector<GpuPerfInfo> samples_;
    std::vector<std::string> texts_;
    AppResourceInfos infos_;
    const sptr<GameEventCallback> events_ = MakeRef<GameEventCallback>();
    const sptr<GpuCounterCallBack> gpu_ = MakeRef<GpuCounterCallBack>();
    const sptr<ResourcePreDownloadCallback> resource_ = MakeRef<ResourcePreDownloadCallback>();
};

}  // namespace TAVO::Veltra

#endif
