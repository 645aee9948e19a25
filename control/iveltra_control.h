// SPDX-License-Identifier: Apache-2.0
// The control side of the service, for tools of its own user: what it serves, why, and what it should pretend.
#ifndef VELTRA_CONTROL_IVELTRA_CONTROL_H
#define VELTRA_CONTROL_IVELTRA_CONTROL_H

#include <cstdint>
#include <string>

#include <tavo/iremote_broker.h>

#include "control/control_codes.h"
#include "control/iveltra_watcher.h"

namespace TAVO::Veltra {

// Results: 0, a SERVICE_ code of the service, or the status of a request that failed (an IpcStatus). `answer` is a JSON
// document with the key "schema"; of a refusal it is {"schema": 1, "error": "what is wrong and what to do"}, and it is
// empty when the request failed. docs/control.md describes every document. Each comment gives the request behind the
// interface token -> the reply.
class IVeltraControl : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"TAVO.Veltra.IVeltraControl")

    // The state of the service: nothing -> Int32, String.
    virtual int32_t Describe(std::string& answer) = 0;
    // Explains the device state in words: nothing -> Int32, String. Takes 2 seconds.
    virtual int32_t Explain(std::string& answer) = 0;
    // Sends records to `watcher` until Unwatch or the caller's end; one watcher for each process, the latest replaces
    // the earlier one. An empty filter asks for everything: String, Object -> Int32, String.
    virtual int32_t Watch(const std::string& filter, const sptr<IVeltraWatcher>& watcher, std::string& answer) = 0;
    // nothing -> Int32
    virtual int32_t Unwatch() = 0;
    // Changes what the service simulates: String -> Int32, String.
    virtual int32_t Simulate(const std::string& command, std::string& answer) = 0;
};

}  // namespace TAVO::Veltra

#endif
