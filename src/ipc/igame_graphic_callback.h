// SPDX-License-Identifier: Apache-2.0
// The callback by which a service changes settings of a game's renderer; the client only passes the object on.
#ifndef VELTRA_IPC_IGAME_GRAPHIC_CALLBACK_H
#define VELTRA_IPC_IGAME_GRAPHIC_CALLBACK_H

#include <cstdint>
#include <string>

#include "tavo/iremote_broker.h"
#include "veltra_export.h"

namespace TAVO::Veltra {

class VELTRA_EXPORT IGameGraphicCallback : public IRemoteBroker {
public:
    // Never destroyed: platform threads may still read it while the process exits.
    static const std::u16string& GetDescriptor()
    {
        static const auto* const descriptor = new std::u16string(u"zem.game.perf.IGameGraphicCallback");
        return *descriptor;
    }

    static constexpr uint32_t CODE_GRAPHIC_SETTING = 1;

    // CODE_GRAPHIC_SETTING, one-way: String name, Int32 value: the setting that the renderer should take on, and its
    // new value. The result stays in the client process.
    virtual int32_t OnGraphicSetting(const std::string& name, int32_t value) = 0;
};

}  // namespace TAVO::Veltra

#endif
