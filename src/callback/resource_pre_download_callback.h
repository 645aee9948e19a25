// SPDX-License-Identifier: Apache-2.0
// The object that the service sends the answers to the two resource queries to.
#ifndef VELTRA_CALLBACK_RESOURCE_PRE_DOWNLOAD_CALLBACK_H
#define VELTRA_CALLBACK_RESOURCE_PRE_DOWNLOAD_CALLBACK_H

#include <memory>
#include <string>
#include <vector>

#include "callback/resource_pre_download_callback_stub.h"
#include "tavo/mutex.h"
#include "veltra_callbacks.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

// Any thread. Two slots that know nothing of each other, so an answer of one kind never waits for the other kind. Each
// callback runs, and a replaced one is destroyed, under the mutex of its slot: replacing waits for an answer that is
// being delivered, and a callback must not replace itself.
class VELTRA_EXPORT ResourcePreDownloadCallback : public ResourcePreDownloadCallbackStub {
public:
    ResourcePreDownloadCallback();
    ~ResourcePreDownloadCallback() override;

    // Both own `callback` from here on, and destroy the previous one; null: answers are acknowledged and dropped. Both
    // always 0.
    int32_t SetGetAppPrioritysCallback(std::unique_ptr<GetAppPrioritysCallbackBase> callback);
    int32_t SetQueryAppResourceInfoCallback(std::unique_ptr<QueryAppResourceInfoCallbackBase> callback);

    // Both on an IPC thread: the callback's result, 0 without one. Throw what the callback throws.
    int32_t OnGetAppPrioritys(std::vector<std::string>& list) override;
    int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) override;

private:
    Mutex resourceInfoMutex_;
    Mutex prioritysMutex_;
    std::unique_ptr<QueryAppResourceInfoCallbackBase> resourceInfoCallback_ TAVO_GUARDED_BY(resourceInfoMutex_);
    std::unique_ptr<GetAppPrioritysCallbackBase> prioritysCallback_ TAVO_GUARDED_BY(prioritysMutex_);
};

}  // namespace TAVO::Veltra

#endif
