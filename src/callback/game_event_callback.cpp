// SPDX-License-Identifier: Apache-2.0
// The service's events arrive on an IPC thread and go to every callback in turn, under the mutex, which also guards the
// map: a callback cannot be destroyed while it runs. Game code may throw or fail: neither stops the callbacks behind
// it, nor reaches the service, whose answer is always 0.
#include "callback/game_event_callback.h"

#include <utility>

namespace TAVO::Veltra {
namespace {

constexpr int32_t CALLBACK_THREW = -1;

int32_t Deliver(GameEventCallbackBase& callback, const GameCallbackEventInfo& info)
try {
    return callback.OnGameCallbackEvent(info);
} catch (...) {
    return CALLBACK_THREW;
}

}  // namespace

GameEventCallback::GameEventCallback() = default;

GameEventCallback::~GameEventCallback() = default;

int32_t GameEventCallback::AddCallback(std::unique_ptr<GameEventCallbackBase> callback, int32_t key)
try {
    MutexLock lock(mutex_);
    if (callback == nullptr) {
        VELTRA_LOGW("the callback from framework is nullptr");
        return RESULT_OK;
    }
    // Destroys the earlier callback of the key, under the mutex: so never while it runs.
    callbacks_[key] = std::move(callback);
    return RESULT_OK;
} catch (...) {  // no memory for a new key
    return RESULT_NO_SERVICE;
}

int32_t GameEventCallback::RemoveCallback(int32_t key)
{
    MutexLock lock(mutex_);
    callbacks_.erase(key);
    return RESULT_OK;
}

bool GameEventCallback::HasCallBacks()
{
    MutexLock lock(mutex_);
    return !callbacks_.empty();
}

int32_t GameEventCallback::OnGameCallbackEvent(const GameCallbackEventInfo& info)
{
    VELTRA_LOGD("OnGameCallbackEvent");
    MutexLock lock(mutex_);
    // Ascending keys. The mutex is held during the callbacks, so a callback that registers or removes one waits for
    // itself: veltra_callbacks.h forbids it.
    for (const auto& [key, callback] : callbacks_) {
        const int32_t result = Deliver(*callback, info);
        if (result != RESULT_OK) {
            VELTRA_LOGW("callback failed, result code = %{public}d", result);
        }
    }
    return RESULT_OK;
}

}  // namespace TAVO::Veltra
