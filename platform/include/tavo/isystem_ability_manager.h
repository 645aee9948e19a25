// SPDX-License-Identifier: Apache-2.0
// The system-ability manager: finds services by number, starts them on demand, accepts their registrations.
#ifndef TAVO_ISYSTEM_ABILITY_MANAGER_H
#define TAVO_ISYSTEM_ABILITY_MANAGER_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tavo/iremote_broker.h"
#include "tavo/isystem_ability_load_callback.h"

namespace TAVO {

// What the manager's operations return when they are not answered with 0 or an object.
enum AbilityStatus : int32_t {
    ABILITY_OK = 0,
    ABILITY_UNKNOWN = 1,       // no ability file has this id
    ABILITY_REFUSED = 2,       // this process may not register the id
    ABILITY_TAKEN = 3,         // another living process serves the id
    ABILITY_UNREACHABLE = 4,   // the manager did not answer within 2 s, or cannot decide now: try again
    ABILITY_NOT_RUNNING = 5,   // nothing to remove
    ABILITY_BAD_REQUEST = 6,   // a callback or object that is null or not the caller's own, or a bad request
    ABILITY_CANNOT_START = 7,  // no program to run, or its last start failed: the manager tries again by itself
};

// One ability as the manager sees it, for tools.
struct AbilityDescription {
    int32_t id = 0;
    bool running = false;
    bool startable = false;  // a valid ability file describes how to start it
    pid_t pid = 0;           // of the serving process, 0 when not running
    int32_t starts = 0;      // processes that this manager has started for it
    int64_t startedAt = 0;   // when it began to start the last of them: nanoseconds of the steady clock, 0 before
    std::string program;     // from the ability file, empty without one
    std::string fault;       // the mistake of its file, or why its last start failed and what to do; else empty
};

// Each call to the manager ends within 2 s; once one timed out, calls fail at once until the manager answers again.
class TAVO_EXPORT ISystemAbilityManager : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"tavo.ISystemAbilityManager")

    enum Code : uint32_t {
        CHECK_ABILITY = 1,   // Int32 id, RemoteObject observer -> Int64 change number, then a RemoteObject if running
        LOAD_ABILITY = 2,    // Int32 id, RemoteObject callback -> Int32 status
        ADD_ABILITY = 3,     // Int32 id, RemoteObject -> Int32 status
        REMOVE_ABILITY = 4,  // Int32 id -> Int32 status
        // nothing -> Int32 count, then each description in the order of its fields: Int32, Bool, Bool, Int32, Int32,
        // Int64, String, String
        DESCRIBE_ABILITIES = 5,
    };

    // The service's object if it is running, else null; starts nothing. The answer for a living service is remembered
    // by this process and costs no round trip until that service dies or the manager notifies of a change.
    virtual sptr<IRemoteObject> CheckAbility(int32_t systemAbilityId) = 0;
    // Requests the service to be started (or found running). 0: accepted, and `callback` is called once, later, on the
    // delivery thread; the manager holds it until then. Else an AbilityStatus, and it is never called. After a failed
    // start every load is refused with ABILITY_CANNOT_START until the service has registered; meanwhile the manager
    // starts it again after growing pauses (100 ms to 10 s) as long as the last load is less than a minute old.
    virtual int32_t LoadAbility(int32_t systemAbilityId, const sptr<ISystemAbilityLoadCallback>& callback) = 0;
    // Registers this process as the service `systemAbilityId`, for the life of the process: a file lock in the runtime
    // directory makes a second one impossible. After a restart of the manager the platform registers again by itself.
    virtual int32_t AddAbility(int32_t systemAbilityId, const sptr<IRemoteObject>& object) = 0;
    // Ends the registration of this process.
    virtual int32_t RemoveAbility(int32_t systemAbilityId) = 0;
    // Every ability with a file, by ascending id; empty if the manager cannot be reached.
    virtual std::vector<AbilityDescription> DescribeAbilities() = 0;
};

}  // namespace TAVO

#endif
