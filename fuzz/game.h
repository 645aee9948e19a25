// SPDX-License-Identifier: Apache-2.0
// A game with a callback at each endpoint, which writes down what it is given.
#ifndef VELTRA_FUZZ_GAME_H
#define VELTRA_FUZZ_GAME_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "callback/game_event_callback.h"
#include "callback/gpu_counter_call_back.h"
#include "callback/resource_pre_download_callback.h"
#include "support/game_callbacks.h"
#include "tavo/read_vector_from_parcel.h"

namespace TAVO::Veltra {

struct Game {
    Game()
    {
        events->AddCallback(std::make_unique<EventFunction>([this](const GameCallbackEventInfo& info) {
                                encoded.WriteString(info.eventText);
                                for (const int32_t value :
                                     {info.tempLevel, info.gpuLoadLevel, info.vertexLoadLevel, info.fragmentLoadLevel,
                                      info.textureLoadLevel, info.bandwidthLoadLevel, info.currentFrequency,
                                      info.thermalMargin, info.thermalTrend, info.extraValue}) {
                                    encoded.WriteInt32(value);
                                }
                                return Called(1);
                            }),
                            1);
        gpu->SetProcessCallback(std::make_unique<GpuFunction>([this](std::vector<GpuPerfInfo>& infos) {
            WriteVectorToParcel(encoded, infos);
            return Called(infos.size());
        }));
        resource->SetGetAppPrioritysCallback(
            std::make_unique<PrioritysFunction>([this](std::vector<std::string>& list) {
                WriteTexts(encoded, list);
                return Called(list.size());
            }));
        resource->SetQueryAppResourceInfoCallback(
            std::make_unique<ResourceInfoFunction>([this](const AppResourceInfos& infos) {
                WriteVectorToParcel(encoded, infos.resourceInfos);
                return Called(infos.resourceInfos.size());
            }));
    }

    static void WriteTexts(MessageParcel& parcel, const std::vector<std::string>& texts)
    {
        parcel.WriteInt32(static_cast<int32_t>(texts.size()));
        for (const std::string& text : texts) {
            parcel.WriteString(text);
        }
    }
    int32_t Called(size_t count)
    {
        ++calls;
        items = count;
        return RESULT;
    }

    static constexpr int32_t RESULT = 77;
    int calls = 0;
    size_t items = 0;       // in the last call
    MessageParcel encoded;  // what the calls were given, encoded once more
    const sptr<GameEventCallback> events = MakeRef<GameEventCallback>();
    const sptr<GpuCounterCallBack> gpu = MakeRef<GpuCounterCallBack>();
    const sptr<ResourcePreDownloadCallback> resource = MakeRef<ResourcePreDownloadCallback>();
};

}  // namespace TAVO::Veltra

#endif
