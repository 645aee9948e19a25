// SPDX-License-Identifier: Apache-2.0
// How the service answers the two resource queries, after the request itself has returned.
#ifndef VELTRA_IPC_IRESOURCE_PRE_DOWNLOAD_NATIVE_CALLBACK_H
#define VELTRA_IPC_IRESOURCE_PRE_DOWNLOAD_NATIVE_CALLBACK_H

#include <cstdint>
#include <string>
#include <vector>

#include "tavo/iremote_broker.h"
#include "veltra_export.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

class VELTRA_EXPORT IResourcePreDownloadNativeCallback : public IRemoteBroker {
public:
    // Never destroyed: platform threads may still read it while the process exits.
    static const std::u16string& GetDescriptor()
    {
        static const auto* const descriptor = new std::u16string(u"zem.game.perf.IResourcePreDownloadNativeCallback");
        return *descriptor;
    }

    // CallbackCode::GET_APP_PRIORITYS: Int32 count, at most MAX_PRIORITIES, then that many Strings; the reply is Int32,
    // the result.
    virtual int32_t OnGetAppPrioritys(std::vector<std::string>& list) = 0;
    // CallbackCode::QUERY_APP_RESOURCE_INFOS: a list of AppResourceInfo (WriteVectorToParcel); the reply is Int32, the
    // result.
    virtual int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) = 0;
};

}  // namespace TAVO::Veltra

#endif
