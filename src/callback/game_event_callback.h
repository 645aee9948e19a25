// SPDX-License-Identifier: Apache-2.0
// The object that the service sends game events to: hands each of them to every callback that the game registered.
#ifndef VELTRA_CALLBACK_GAME_EVENT_CALLBACK_H
#define VELTRA_CALLBACK_GAME_EVENT_CALLBACK_H

#include <map>
#include <memory>

#include "callback/game_event_callback_stub.h"
#include "tavo/mutex.h"
#include "veltra_callbacks.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

// Any thread. The callbacks run, and replaced or removed ones are destroyed, under the mutex: so events come one after
// the other, the operations below wait for an event that is being delivered, and neither a callback nor its destructor
// may call them on the same object, which would never return.
class VELTRA_EXPORT GameEventCallback : public GameEventCallbackStub {
public:
    GameEventCallback();
    ~GameEventCallback() override;

    // Owns `callback` from here on, and destroys the one that `key` had. Null changes nothing. 0, or RESULT_NO_SERVICE
    // when there is no memory for the key; `callback` is destroyed then.
    int32_t AddCallback(std::unique_ptr<GameEventCallbackBase> callback, int32_t key);
    // Destroys the callback of `key`, if there is one. Always 0.
    int32_t RemoveCallback(int32_t key);
    bool HasCallBacks();

    // On an IPC thread: every callback, by ascending key. One that fails or throws is logged and stops none. Always 0.
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override;

private:
    Mutex mutex_;
    // Deliberate: never filled. Frameworks that share the object's layout look for the map behind it.
    std::unique_ptr<GameEventCallbackBase> callback_ TAVO_GUARDED_BY(mutex_);
    std::map<int32_t, std::unique_ptr<GameEventCallbackBase>> callbacks_ TAVO_GUARDED_BY(mutex_);  // none is null
};

}  // namespace TAVO::Veltra

#endif
