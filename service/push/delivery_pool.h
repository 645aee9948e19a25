// SPDX-License-Identifier: Apache-2.0
// Sends pushes (events, samples, answers) to clients, on threads of its own, so that no client delays another.
#ifndef VELTRA_SERVICE_DELIVERY_POOL_H
#define VELTRA_SERVICE_DELIVERY_POOL_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <thread>
#include <vector>

#include <tavo/iremote_object.h>
#include <tavo/mutex.h>

namespace TAVO::Veltra {

// At most one delivery is outstanding for each callback object. A client whose callback blocks occupies a thread until
// the delivery times out (8 s). Then it is silent: it gets nothing until it calls again. After that it is slow: until a
// delivery to it succeeds, all slow clients share MAX_RUNNING_SLOW threads. Any thread; only the destructor waits.
class DeliveryPool {
public:
    static constexpr size_t MAX_THREADS = 16;  // started when they are needed, kept
    static constexpr size_t MAX_RUNNING_PER_CLIENT = 3;
    static constexpr size_t MAX_RUNNING_SLOW = 4;      // of all clients whose last delivery timed out, one each
    static constexpr size_t MAX_WAITING_ANSWERS = 16;  // per client
    static constexpr size_t MAX_WAITING_EVENTS = 100;  // per object

    // Sends one request and returns its status: IPC_TIMED_OUT makes the client silent, any other status changes
    // nothing. `replaced` is the number of older deliveries to the same object that newer ones have replaced.
    using Delivery = std::function<int32_t(uint32_t replaced)>;

    DeliveryPool() = default;
    ~DeliveryPool();  // waits for deliveries that have begun; forgets the others
    DeliveryPool(const DeliveryPool&) = delete;
    DeliveryPool& operator=(const DeliveryPool&) = delete;

    // For `object` of process `client` (its session): in place of the last one that waits if that is replaceable or
    // MAX_WAITING_EVENTS wait, else after it.
    void PushLatest(uint64_t client, const sptr<IRemoteObject>& object, Delivery delivery, bool isReplaceable = true);
    // After those that still wait. False when MAX_WAITING_ANSWERS of this client do: nothing was kept.
    bool PushAnswer(uint64_t client, const sptr<IRemoteObject>& object, Delivery delivery);
    // Drops the deliveries that are queued for `object`. A delivery that has begun goes on.
    void Drop(const sptr<IRemoteObject>& object);
    // The client has called: pushes to it are sent again.
    void Heard(uint64_t client)
    {
        if (silent_.load(std::memory_order_relaxed) > 0) {  // else no request pays for a lock
            EndSilence(client);
        }
    }

    struct Counts {
        uint64_t replaced = 0;
        uint64_t dropped = 0;  // for a client that is silent
        uint64_t timedOut = 0;
    };
    Counts Count() const;
    bool IsIdle() const;  // nothing waits or runs

private:
    struct Waiting {
        Delivery send;
        bool isReplaceable = false;
        uint32_t replaced = 0;
    };
    struct Line {  // what goes to one object
        uint64_t client = 0;
        std::deque<Waiting> waiting;
        bool holdsAnswers = false;
        bool isRunning = false;
        bool runsAsSlow = false;
    };
    struct Client {
        size_t lines = 0;
        size_t running = 0;
        size_t answers = 0;           // waiting
        bool isSlow = false;          // the last delivery timed out
        bool isSilent = false;        // and it has not called since
        sptr<IRemoteObject> blocked;  // the object of that delivery, by which the death of its process is seen
    };
    using Lines = std::map<sptr<IRemoteObject>, Line>;

    Line* OpenLine(uint64_t client, const sptr<IRemoteObject>& object) TAVO_REQUIRES(mutex_);
    void Enqueue(const sptr<IRemoteObject>& object, Line& line, Waiting delivery) TAVO_REQUIRES(mutex_);
    void ForgetWaiting(Line& line, const sptr<IRemoteObject>& object) TAVO_REQUIRES(mutex_);
    void CloseIfIdle(const sptr<IRemoteObject>& object) TAVO_REQUIRES(mutex_);
    void CloseIfUnused(uint64_t client) TAVO_REQUIRES(mutex_);
    void StartThreadIfNeeded() TAVO_REQUIRES(mutex_);
    std::deque<sptr<IRemoteObject>>::iterator NextEligible() TAVO_REQUIRES(mutex_);
    void Work();
    void Begin(Line& line) TAVO_REQUIRES(mutex_);
    void Finish(const sptr<IRemoteObject>& object, int32_t status) TAVO_REQUIRES(mutex_);
    void Silence(Client& client, const sptr<IRemoteObject>& object, uint64_t id) TAVO_REQUIRES(mutex_);
    void ForgetEnded() TAVO_REQUIRES(mutex_);
    void EndSilence(uint64_t client);

    mutable Mutex mutex_;
    std::condition_variable changed_;                                // something may have become eligible, or the end
    std::map<uint64_t, Client> clients_ TAVO_GUARDED_BY(mutex_);     // those with lines, and slow ones
    Lines lines_ TAVO_GUARDED_BY(mutex_);                            // those with something waiting or running
    std::deque<sptr<IRemoteObject>> ready_ TAVO_GUARDED_BY(mutex_);  // lines that wait and do not run, oldest first
    size_t runningSlow_ TAVO_GUARDED_BY(mutex_) = 0;
    size_t idle_ TAVO_GUARDED_BY(mutex_) = 0;  // threads that wait
    std::vector<std::thread> threads_ TAVO_GUARDED_BY(mutex_);
    Counts counts_ TAVO_GUARDED_BY(mutex_);
    bool isStopping_ TAVO_GUARDED_BY(mutex_) = false;
    std::atomic<size_t> silent_{0};  // clients; changed under the mutex
};

}  // namespace TAVO::Veltra

#endif
