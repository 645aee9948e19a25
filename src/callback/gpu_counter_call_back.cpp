// SPDX-License-Identifier: Apache-2.0
#include "callback/gpu_counter_call_back.h"

#include <utility>

namespace TAVO::Veltra {

GpuCounterCallBack::GpuCounterCallBack() = default;

GpuCounterCallBack::~GpuCounterCallBack() = default;

int32_t GpuCounterCallBack::SetProcessCallback(std::unique_ptr<GpuCounterCallBackBase> callback)
{
    MutexLock lock(mutex_);
    callback_ = std::move(callback);
    return RESULT_OK;
}

int32_t GpuCounterCallBack::OnGpuData(std::vector<GpuPerfInfo>& infos)
{
    MutexLock lock(mutex_);
    // Null until the service has accepted the stream: batches before that are dropped.
    return callback_ != nullptr ? callback_->OnGpuData(infos) : RESULT_OK;
}

}  // namespace TAVO::Veltra
