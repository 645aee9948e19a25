// SPDX-License-Identifier: Apache-2.0
// Two callbacks with a mutex each, since one object serves one query: an answer to the other kind is of no concern.
#include "callback/resource_pre_download_callback.h"

#include <utility>

namespace TAVO::Veltra {

ResourcePreDownloadCallback::ResourcePreDownloadCallback() = default;

ResourcePreDownloadCallback::~ResourcePreDownloadCallback() = default;

int32_t ResourcePreDownloadCallback::SetGetAppPrioritysCallback(std::unique_ptr<GetAppPrioritysCallbackBase> callback)
{
    MutexLock lock(prioritysMutex_);
    prioritysCallback_ = std::move(callback);
    return RESULT_OK;
}

int32_t ResourcePreDownloadCallback::SetQueryAppResourceInfoCallback(
    std::unique_ptr<QueryAppResourceInfoCallbackBase> callback)
{
    MutexLock lock(resourceInfoMutex_);
    resourceInfoCallback_ = std::move(callback);
    return RESULT_OK;
}

int32_t ResourcePreDownloadCallback::OnGetAppPrioritys(std::vector<std::string>& list)
{
    MutexLock lock(prioritysMutex_);
    return prioritysCallback_ != nullptr ? prioritysCallback_->OnGetAppPrioritys(list) : RESULT_OK;
}

int32_t ResourcePreDownloadCallback::OnQueryAppResourceInfos(const AppResourceInfos& infos)
{
    MutexLock lock(resourceInfoMutex_);
    return resourceInfoCallback_ != nullptr ? resourceInfoCallback_->OnQueryAppResourceInfos(infos) : RESULT_OK;
}

}  // namespace TAVO::Veltra
