// SPDX-License-Identifier: Apache-2.0
// A game's callbacks, each a function of the test. What the function has captured dies with the callback.
#ifndef VELTRA_TESTS_SUPPORT_GAME_CALLBACKS_H
#define VELTRA_TESTS_SUPPORT_GAME_CALLBACKS_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "veltra_callbacks.h"

namespace TAVO::Veltra {

template <typename Base, typename Argument>
class FunctionCallback : public Base {
public:
    using Body = std::function<int32_t(Argument)>;
    explicit FunctionCallback(Body body) : body_(std::move(body)) {}

protected:
    const Body body_;
};

class EventFunction : public FunctionCallback<GameEventCallbackBase, const GameCallbackEventInfo&> {
public:
    using FunctionCallback::FunctionCallback;
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override { return body_(info); }
};

class GpuFunction : public FunctionCallback<GpuCounterCallBackBase, std::vector<GpuPerfInfo>&> {
public:
    using FunctionCallback::FunctionCallback;
    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override { return body_(infos); }
};

class PrioritysFunction : public FunctionCallback<GetAppPrioritysCallbackBase, std::vector<std::string>&> {
public:
    using FunctionCallback::FunctionCallback;
    int32_t OnGetAppPrioritys(std::vector<std::string>& list) override { return body_(list); }
};

class ResourceInfoFunction : public FunctionCallback<QueryAppResourceInfoCallbackBase, const AppResourceInfos&> {
public:
    using FunctionCallback::FunctionCallback;
    int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) override { return body_(infos); }
};

}  // namespace TAVO::Veltra

#endif
