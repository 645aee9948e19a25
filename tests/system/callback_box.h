// SPDX-License-Identifier: Apache-2.0
// The callback objects that clients gave to the test service, by name, and requests to them by hand.
#ifndef VELTRA_TESTS_SYSTEM_CALLBACK_BOX_H
#define VELTRA_TESTS_SYSTEM_CALLBACK_BOX_H

#include <map>
#include <sstream>
#include <string>

#include "support/process.h"
#include "tavo/iremote_object.h"
#include "tavo/mutex.h"

namespace SystemTest {

// Any thread.
class CallbackBox {
public:
    explicit CallbackBox(TestSupport::LinePipe& parent) : parent_(parent) {}

    void Keep(const std::string& name, const TAVO::sptr<TAVO::IRemoteObject>& object);
    int Drop(const std::string& name);  // always 0

    // `NAME CODE TOKEN ITEM...`: sends one request from a thread of its own and says its status and, behind a space,
    // each Int32 of its reply. An item is an Int32, a String behind a ', or gpu*N or info*N, that many records of a
    // list with the marker before each. A token of - is none.
    void Push(std::istringstream words);
    // Sends events to `name` without a pause, from a thread of its own, until one fails; says "flooded" and its status.
    void Flood(const std::string& name);

private:
    TAVO::sptr<TAVO::IRemoteObject> Find(const std::string& name);

    TestSupport::LinePipe& parent_;
    TAVO::Mutex mutex_;
    std::map<std::string, TAVO::sptr<TAVO::IRemoteObject>> objects_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace SystemTest

#endif
