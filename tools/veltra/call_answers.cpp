// SPDX-License-Identifier: Apache-2.0
// The four callbacks, and the queue between them and main. Lists are cut after 16 entries, with their full length
// beside them: a batch of samples may have half a million.
#include "call_answers.h"

#include <algorithm>
#include <limits>

namespace VeltraTool {

using namespace TAVO::Veltra;

namespace {

constexpr size_t MAX_RECORDS = 1000;
constexpr size_t MAX_ITEMS = 16;

template <typename List, typename ToJson>
// Runs on the platform thread that delivers the callback; so the cut is made here, before the record is queued.
Json::Value ListRecord(const char* what, const char* key, const List& list, ToJson toJson)
{
    Json::Value record;
    record["what"] = what;
    record["count"] = Json::UInt64(list.size());
    Json::Value& items = record[key] = Json::arrayValue;
    for (size_t i = 0; i < std::min(list.size(), MAX_ITEMS); ++i) {
        items.append(toJson(list[i]));
    }
    return record;
}

Json::Value JsonOf(const GpuPerfInfo& sample)
{
    Json::Value json;
    json["long1"] = Json::Int64(sample.long1);
    json["long2"] = Json::Int64(sample.long2);
    json["int1"] = sample.int1;
    json["ulong1"] = Json::UInt64(sample.ulong1);
    json["ulong2"] = Json::UInt64(sample.ulong2);
    json["ulong3"] = Json::UInt64(sample.ulong3);
    const uint32_t numbers[] = {sample.uint1, sample.uint2, sample.uint3, sample.uint4, sample.uint5,
                                sample.uint6, sample.uint7, sample.uint8, sample.uint9, sample.uint10};
    for (size_t i = 0; i < std::size(numbers); ++i) {
        json["uint" + std::to_string(i + 1)] = numbers[i];
    }
    return json;
}

Json::Value JsonOf(const AppResourceInfo& info)
{
    Json::Value json;
    json["text1"] = info.text1;
    json["int1"] = info.int1;
    json["int2"] = info.int2;
    json["text2"] = info.text2;
    json["text3"] = info.text3;
    json["long1"] = Json::Int64(info.long1);
    json["int3"] = info.int3;
    json["text4"] = info.text4;
    return json;
}

class Events : public GameEventCallbackBase {
public:
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override
    {
        Json::Value record = VeltraTool::JsonOf(info);
        record["what"] = "gameEvent";
        record["eventText"] = info.eventText;
        record["extraValue"] = info.extraValue;
        CallAnswers::Instance().Add(std::move(record));
        return 0;
    }
};

class GpuSamples : public GpuCounterCallBackBase {
public:
    int32_t OnGpuData(std::vector<GpuPerfInfo>& samples) override
    {
        CallAnswers::Instance().Add(
            ListRecord("gpu", "samples", samples, [](const GpuPerfInfo& sample) { return JsonOf(sample); }));
        return 0;
    }
};

class Priorities : public GetAppPrioritysCallbackBase {
public:
    int32_t OnGetAppPrioritys(std::vector<std::string>& names) override
    {
        CallAnswers::Instance().Add(ListRecord("appPriorities", "bundleNames", names,
                                               [](const std::string& name) { return Json::Value(name); }));
        return 0;
    }
};

class Resources : public QueryAppResourceInfoCallbackBase {
public:
    int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) override
    {
        CallAnswers::Instance().Add(ListRecord("resourceInfos", "resources", infos.resourceInfos,
                                               [](const AppResourceInfo& info) { return JsonOf(info); }));
        return 0;
    }
};

}  // namespace

CallAnswers& CallAnswers::Instance()
{
    // Deliberate: never destroyed. A callback may run on a platform thread while the process exits.
    static CallAnswers* const answers = new CallAnswers;
    return *answers;
}

void CallAnswers::Add(Json::Value record)
{
    const std::lock_guard lock(mutex_);
    // A service that sends without end must not fill the memory of the tool; main prints more slowly.
    if (records_.size() < MAX_RECORDS) {
        records_.push_back(std::move(record));
    }
    changed_.notify_all();
}

std::optional<Json::Value> CallAnswers::Take(std::chrono::steady_clock::time_point deadline)
{
    std::unique_lock lock(mutex_);
    if (!changed_.wait_until(lock, deadline, [this] { return !records_.empty(); })) {
        return std::nullopt;
    }
    Json::Value record = std::move(records_.front());
    records_.pop_front();
    return record;
}

Json::Value JsonOf(const GameCallbackEventInfo& info)
{
    Json::Value json = Json::objectValue;
    json["tempLevel"] = info.tempLevel;
    json["gpuLoadLevel"] = info.gpuLoadLevel;
    json["vertexLoadLevel"] = info.vertexLoadLevel;
    json["fragmentLoadLevel"] = info.fragmentLoadLevel;
    json["textureLoadLevel"] = info.textureLoadLevel;
    json["bandwidthLoadLevel"] = info.bandwidthLoadLevel;
    json["currentFrequency"] = info.currentFrequency;
    // The smallest number means that the margin is not known; JSON leaves the key out.
    if (info.thermalMargin != std::numeric_limits<int32_t>::min()) {
        json["thermalMargin"] = info.thermalMargin;
    }
    json["thermalTrend"] = info.thermalTrend;
    return json;
}

std::unique_ptr<GameEventCallbackBase> MakeEventCallback()
{
    return std::make_unique<Events>();
}

std::unique_ptr<GpuCounterCallBackBase> MakeGpuCallback()
{
    return std::make_unique<GpuSamples>();
}

std::unique_ptr<GetAppPrioritysCallbackBase> MakePrioritiesCallback()
{
    return std::make_unique<Priorities>();
}

std::unique_ptr<QueryAppResourceInfoCallbackBase> MakeResourcesCallback()
{
    return std::make_unique<Resources>();
}

}  // namespace VeltraTool
