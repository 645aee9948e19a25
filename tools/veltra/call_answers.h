// SPDX-License-Identifier: Apache-2.0
// What the service sends to the callbacks of an operation, as JSON, handed from the library's threads to main.
#ifndef VELTRA_TOOLS_CALL_ANSWERS_H
#define VELTRA_TOOLS_CALL_ANSWERS_H

#include <json/value.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include "veltra_callbacks.h"

namespace VeltraTool {

// Any thread. Keeps at most 1000 records; later ones are dropped.
class CallAnswers {
public:
    // Never destroyed: callbacks may run until the process ends.
    static CallAnswers& Instance();

    void Add(Json::Value record);
    // The next record; empty when none came before `deadline`.
    std::optional<Json::Value> Take(std::chrono::steady_clock::time_point deadline);

private:
    CallAnswers() = default;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Json::Value> records_;  // under mutex_
};

Json::Value JsonOf(const TAVO::Veltra::GameCallbackEventInfo& info);

// Callbacks that add what they receive to CallAnswers.
std::unique_ptr<TAVO::Veltra::GameEventCallbackBase> MakeEventCallback();
std::unique_ptr<TAVO::Veltra::GpuCounterCallBackBase> MakeGpuCallback();
std::unique_ptr<TAVO::Veltra::GetAppPrioritysCallbackBase> MakePrioritiesCallback();
std::unique_ptr<TAVO::Veltra::QueryAppResourceInfoCallbackBase> MakeResourcesCallback();

}  // namespace VeltraTool

#endif
