// SPDX-License-Identifier: Apache-2.0
// The object that the service sends GPU counter samples to while a stream runs.
#ifndef VELTRA_CALLBACK_GPU_COUNTER_CALL_BACK_H
#define VELTRA_CALLBACK_GPU_COUNTER_CALL_BACK_H

#include <memory>
#include <vector>

#include "callback/gpu_counter_call_back_stub.h"
#include "tavo/mutex.h"
#include "veltra_callbacks.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

// Any thread. The callback runs, and a replaced one is destroyed, under the mutex: so batches come one after the other,
// replacing waits for a batch that is being delivered, and the callback must not replace itself.
class VELTRA_EXPORT GpuCounterCallBack : public GpuCounterCallBackStub {
public:
    GpuCounterCallBack();
    ~GpuCounterCallBack() override;

    // Owns `callback` from here on, and destroys the previous one; null: batches are acknowledged and dropped. Always
    // 0.
    int32_t SetProcessCallback(std::unique_ptr<GpuCounterCallBackBase> callback);

    // On an IPC thread: the callback's result, 0 without one. Throws what the callback throws.
    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override;

private:
    Mutex mutex_;
    std::unique_ptr<GpuCounterCallBackBase> callback_ TAVO_GUARDED_BY(mutex_);  // null until the stream has started
};

}  // namespace TAVO::Veltra

#endif
