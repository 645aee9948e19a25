// SPDX-License-Identifier: Apache-2.0
// Copies member by member, once for each call or callback. Towards C nothing of a text is copied: the structure points
// into the C++ record, which must outlive it, and both stay unchanged meanwhile. Towards C++ all texts are copied,
// since the caller may free them when the call returns; a null text becomes an empty one. The lists and the copied
// texts allocate memory and may throw std::bad_alloc, which Guarded turns into a result where a C caller waits for one.
#include "convert.h"

#include <utility>

namespace TAVO::Veltra::C {

veltra_device_info DeviceInfo(const GameCallbackEventInfo& info)
{
    veltra_device_info result{};
    result.size = sizeof(result);
    // Valid as long as `info`: for the time of the callback.
    result.event_text = info.eventText.c_str();
    result.temp_level = info.tempLevel;
    result.gpu_load_level = info.gpuLoadLevel;
    result.vertex_load_level = info.vertexLoadLevel;
    result.fragment_load_level = info.fragmentLoadLevel;
    result.texture_load_level = info.textureLoadLevel;
    result.bandwidth_load_level = info.bandwidthLoadLevel;
    result.current_frequency = info.currentFrequency;
    result.thermal_margin = info.thermalMargin;
    result.thermal_trend = info.thermalTrend;
    result.extra_value = info.extraValue;
    return result;
}

std::vector<veltra_gpu_sample> Samples(const std::vector<GpuPerfInfo>& infos)
{
    std::vector<veltra_gpu_sample> samples;
    samples.reserve(infos.size());
    for (const GpuPerfInfo& info : infos) {
        // In the order of the fields of veltra_gpu_sample.
        samples.push_back({info.long1,
                           info.long2,
                           info.ulong1,
                           info.ulong2,
                           info.ulong3,
                           info.int1,
                           {info.uint1, info.uint2, info.uint3, info.uint4, info.uint5, info.uint6, info.uint7,
                            info.uint8, info.uint9, info.uint10}});
    }
    return samples;
}

std::vector<veltra_resource> Resources(const AppResourceInfos& infos)
{
    std::vector<veltra_resource> resources;
    resources.reserve(infos.resourceInfos.size());
    for (const AppResourceInfo& info : infos.resourceInfos) {
        resources.push_back({sizeof(veltra_resource), info.text1.c_str(), info.text2.c_str(), info.text3.c_str(),
                             info.text4.c_str(), info.int1, info.int2, info.int3, info.long1});
    }
    return resources;
}

GameInfo GameInfoOf(const veltra_game_info& given)
{
    GameInfo info;
    info.int32Value = given.int32_value;
    info.int64Value = given.int64_value;
    std::string* const texts[] = {&info.text1, &info.text2, &info.text3, &info.text4, &info.text5, &info.text6};
    for (size_t i = 0; i < std::size(texts); ++i) {
        *texts[i] = Text(given.texts[i]);
    }
    return info;
}

namespace {

AppResourceInfo ResourceOf(const veltra_resource& given)
{
    AppResourceInfo info;
    info.text1 = Text(given.text1);
    info.text2 = Text(given.text2);
    info.text3 = Text(given.text3);
    info.text4 = Text(given.text4);
    info.int1 = given.int1;
    info.int2 = given.int2;
    info.int3 = given.int3;
    info.long1 = given.long1;
    return info;
}

AppResourceDownLoadResult DownloadOf(const veltra_download_result& given)
{
    AppResourceDownLoadResult result;
    result.text1 = Text(given.text1);
    result.text2 = Text(given.text2);
    result.value1 = given.value1;
    result.value2 = given.value2;
    result.value3 = given.value3;
    result.value4 = given.value4;
    result.count1 = given.count1;
    result.count2 = given.count2;
    result.resourceInfo = ResourceOf(given.resource);
    return result;
}

}  // namespace

std::map<std::string, std::string> Pairs(const char* const* keys, const char* const* values, size_t count)
{
    std::map<std::string, std::string> pairs;
    for (size_t i = 0; i < count; ++i) {
        pairs[Text(keys[i])] = Text(values[i]);
    }
    return pairs;
}

GameSceneBundle SceneOf(int32_t id, const char* name, std::map<std::string, std::string> attributes)
{
    GameSceneBundle bundle;
    bundle.sceneId = id;
    bundle.sceneName = Text(name);
    bundle.attributes = std::move(attributes);
    return bundle;
}

std::vector<AppResourceDownLoadResult> Downloads(const veltra_download_result* given, size_t count)
{
    std::vector<AppResourceDownLoadResult> list;
    for (size_t i = 0; i < count; ++i) {
        const char* const place = reinterpret_cast<const char*>(given) + i * given->size;
        list.push_back(DownloadOf(Read(reinterpret_cast<const veltra_download_result*>(place))));
    }
    return list;
}

}  // namespace TAVO::Veltra::C
