// SPDX-License-Identifier: Apache-2.0
// The object that test processes serve: it keeps, passes, calls and waits on request. Every process has a store of
// kept objects, one gate that handlers wait at, and a list of notes.
#ifndef VELTRA_TESTS_TRANSPORT_TEST_OBJECT_H
#define VELTRA_TESTS_TRANSPORT_TEST_OBJECT_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/process.h"
#include "tavo/tavo.h"

namespace TransportTest {

using TAVO::IRemoteObject;
using TAVO::MessageOption;
using TAVO::MessageParcel;
using TAVO::sptr;

enum class TestCode : uint32_t {
    ECHO = 1,      // is returned unchanged, without references
    KEEP,          // String name, reference: kept under that name; without one: forgotten
    FETCH,         // String name -> reference
    CALL_KEPT,     // String name, Int32 code -> Int32: status of that call to the object kept under the name
    MAKE,          // Bool serialInvoke, Int32 count (or 1) -> references to new objects, held by the caller only
    NUMBER,        // -> Int32: of the object, no two in a process are alike
    LIVE,          // -> Int32: objects that live in the process
    WAIT,          // waits at the gate
    OPEN,          // lets all pass that wait at the gate
    NOTE,          // Int32: adds it to the notes
    NOTES,         // -> Int32 each: the notes so far
    NEST,          // Int32 depth, reference: calls that with depth - 1 and itself -> Int32: levels below
    MOST_AT_ONCE,  // -> Int32: most requests that the object handled at one time
    HAND_ON,  // String name, reference -> Int32: status of its KEEP of what is kept here under the name, or of a new one
};

// The process-wide part. Any thread.
class World {
public:
    static World& Get();

    void Keep(const std::string& name, const sptr<IRemoteObject>& object);
    sptr<IRemoteObject> Kept(const std::string& name);

    void WaitAtGate();
    void OpenGate();
    // Whether so many handlers waited at the gate at the same time.
    bool AwaitWaiting(int handlers);
    int Waiting();

    void AddNote(int32_t note);
    std::vector<int32_t> Notes();

    std::atomic<int32_t> madeObjects{0};
    std::atomic<int32_t> liveObjects{0};

private:
    TAVO::Mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, sptr<IRemoteObject>> kept_ TAVO_GUARDED_BY(mutex_);
    std::vector<int32_t> notes_ TAVO_GUARDED_BY(mutex_);
    int waiting_ TAVO_GUARDED_BY(mutex_) = 0;
    int opened_ TAVO_GUARDED_BY(mutex_) = 0;  // times
};

class TestObject : public TAVO::IPCObjectStub {
public:
    // `farewell` runs in the destructor, on whichever thread that is.
    explicit TestObject(bool serialInvoke = false, std::function<void()> farewell = nullptr);
    ~TestObject() override;

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;

private:
    int Handle(TestCode code, MessageParcel& data, MessageParcel& reply);
    static int Make(MessageParcel& data, MessageParcel& reply);
    int HandleState(TestCode code, MessageParcel& data, MessageParcel& reply);
    int HandleNest(MessageParcel& data, MessageParcel& reply);

    const int32_t number_;
    const std::function<void()> farewell_;
    std::atomic<int32_t> atOnce_{0};
    std::atomic<int32_t> mostAtOnce_{0};
};

// Counts its notices, and runs a function of the test with each.
class CountingRecipient : public IRemoteObject::DeathRecipient {
public:
    explicit CountingRecipient(std::function<void()> then = nullptr) : then_(std::move(then)) {}
    // One that was added to `object`; never notified if it could not be added.
    static sptr<CountingRecipient> Of(const sptr<IRemoteObject>& object);
    void OnRemoteDied(const TAVO::wptr<IRemoteObject>&) override;
    bool AwaitTold() const;

    std::atomic<int> told{0};

private:
    const std::function<void()> then_;
};

// One request: arguments are added, then it is sent and `reply` is read. A null target gives status 1.
class Call {
public:
    Call(const sptr<IRemoteObject>& target, TestCode code) : target_(target), code_(static_cast<uint32_t>(code)) {}

    Call& Int(int32_t value) { return data.WriteInt32(value), *this; }
    Call& Text(const std::string& text) { return data.WriteString(text), *this; }
    Call& Object(const sptr<IRemoteObject>& object) { return data.WriteRemoteObject(object), *this; }
    int Send(int waitSeconds = MessageOption::WAIT_TIME_SECONDS);
    int SendOneWay();
    // Sends; the answer's one number, or -1 when there is none.
    int32_t SendForInt();
    // Sends; the answer's one object, or null.
    sptr<IRemoteObject> SendForObject();

    MessageParcel data;
    MessageParcel reply;

private:
    const sptr<IRemoteObject> target_;
    const uint32_t code_;
};

// 0 when the object sent back the same bytes, else the status, or 1 for a wrong answer.
int Echo(const sptr<IRemoteObject>& target, int32_t value = 7);
// A new object in the process of `world`, held by the caller only.
sptr<IRemoteObject> MakeIn(const sptr<IRemoteObject>& world, bool serialInvoke = false);
// The process of `to` keeps under that name what the one of `from` does, or else a new object of its (the status).
int HandOn(const sptr<IRemoteObject>& from, const std::string& name, const sptr<IRemoteObject>& to);
// The process of `world` keeps an object or forgets one (the status), hands one out, calls one (the status of that).
int KeepIn(const sptr<IRemoteObject>& world, const std::string& name, const sptr<IRemoteObject>& object);
sptr<IRemoteObject> FetchFrom(const sptr<IRemoteObject>& world, const std::string& name);
int CallKept(const sptr<IRemoteObject>& world, const std::string& name, TestCode code = TestCode::ECHO);
// Whether the status is that of a call to a peer that has ended or misbehaves.
bool IsConnectionError(int status);

// Makes this process the manager of its runtime directory, with a TestObject as its root.
sptr<TestObject> ServeAsHub();
// The manager's root object, connecting to it.
sptr<IRemoteObject> ConnectToHub();
// Starts a process whose object is kept by the hub under `name`, or the hub as "hub", and waits until it serves.
TestSupport::Child StartPeer(const std::string& name);

}  // namespace TransportTest

#endif
