// SPDX-License-Identifier: Apache-2.0
// The sending ends: a client has an EchoProxy, the service an EchoListenerProxy for each listener.
#ifndef EXAMPLES_ECHO_ECHO_PROXY_H
#define EXAMPLES_ECHO_ECHO_PROXY_H

#include "iecho.h"
#include "tavo/iremote_proxy.h"
#include "tavo/typed_request.h"

namespace Echo {

class EchoProxy : public IRemoteProxy<IEcho> {
public:
    explicit EchoProxy(const sptr<IRemoteObject>& object) : IRemoteProxy(object) {}

    int32_t Say(const std::string& text, std::string& answer) override
    {
        return CallRemote(Remote(), SAY, &IEcho::Say, text, answer);
    }
    int32_t Listen(const sptr<IEchoListener>& listener) override
    {
        return CallRemote(Remote(), LISTEN, &IEcho::Listen, listener);
    }

private:
    static inline BrokerDelegator<EchoProxy> delegator_;  // iface_cast<IEcho> makes this class
};

class EchoListenerProxy : public IRemoteProxy<IEchoListener> {
public:
    explicit EchoListenerProxy(const sptr<IRemoteObject>& object) : IRemoteProxy(object) {}

    int32_t OnText(const std::string& text) override
    {
        return NotifyRemote(Remote(), TEXT, &IEchoListener::OnText, text);
    }

private:
    static inline BrokerDelegator<EchoListenerProxy> delegator_;
};

}  // namespace Echo

#endif
