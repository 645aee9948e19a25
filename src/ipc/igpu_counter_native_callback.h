// SPDX-License-Identifier: Apache-2.0
// How the service pushes GPU counter samples into a client process.
#ifndef VELTRA_IPC_IGPU_COUNTER_NATIVE_CALLBACK_H
#define VELTRA_IPC_IGPU_COUNTER_NATIVE_CALLBACK_H

#include <cstdint>
#include <string>
#include <vector>

#include "tavo/iremote_broker.h"
#include "veltra_export.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

class VELTRA_EXPORT IGpuCounterNativeCallback : public IRemoteBroker {
public:
    // Never destroyed: platform threads may still read it while the process exits.
    static const std::u16string& GetDescriptor()
    {
        static const auto* const descriptor = new std::u16string(u"zem.game.perf.IGpuCounterNativeCallback");
        return *descriptor;
    }

    // CallbackCode::GPU_COUNTER_DATA: a list of GpuPerfInfo (WriteVectorToParcel); the reply is Int32, the result.
    virtual int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) = 0;
};

}  // namespace TAVO::Veltra

#endif
