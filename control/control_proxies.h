// SPDX-License-Identifier: Apache-2.0
// The sending ends of the control interfaces: a tool has a VeltraControlProxy, the service VeltraWatcherProxies.
#ifndef VELTRA_CONTROL_PROXIES_H
#define VELTRA_CONTROL_PROXIES_H

#include <cstdint>
#include <string>

#include <tavo/iremote_proxy.h>

#include "control/iveltra_control.h"
#include "control/iveltra_watcher.h"

namespace TAVO::Veltra {

// No state, no lock. Each operation but OnRecords blocks up to 8 s for the answer.
class VeltraControlProxy : public IRemoteProxy<IVeltraControl> {
public:
    explicit VeltraControlProxy(const sptr<IRemoteObject>& object) : IRemoteProxy(object) {}

    int32_t Describe(std::string& answer) override;
    int32_t Explain(std::string& answer) override;
    int32_t Watch(const std::string& filter, const sptr<IVeltraWatcher>& watcher, std::string& answer) override;
    int32_t Unwatch() override;
    int32_t Simulate(const std::string& command, std::string& answer) override;

private:
    static BrokerDelegator<VeltraControlProxy> delegator_;
};

// Never waits for the watcher, except up to 1 s for the first contact with its process. IPC_QUEUE_FULL, and nothing
// sent, when the watcher does not keep up.
class VeltraWatcherProxy : public IRemoteProxy<IVeltraWatcher> {
public:
    explicit VeltraWatcherProxy(const sptr<IRemoteObject>& object) : IRemoteProxy(object) {}

    int32_t OnRecords(const std::string& lines, uint64_t dropped) override;

private:
    static BrokerDelegator<VeltraWatcherProxy> delegator_;
};

}  // namespace TAVO::Veltra

#endif
