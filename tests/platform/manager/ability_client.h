// SPDX-License-Identifier: Apache-2.0
// What a client of the manager sees, as short texts that tests compare; used by the tests and by their programs.
#ifndef VELTRA_TESTS_PLATFORM_MANAGER_ABILITY_CLIENT_H
#define VELTRA_TESTS_PLATFORM_MANAGER_ABILITY_CLIENT_H

#include <cstdint>
#include <future>
#include <string>

#include "tavo/ipc_object_stub.h"
#include "tavo/isystem_ability_manager.h"

namespace ManagerTest {

// The object of the test services: returns the pid of its process, once its registration is complete.
class PidService : public TAVO::IPCObjectStub {
public:
    static constexpr uint32_t GET_PID = 1;

    PidService() : IPCObjectStub(u"tavo.test.IPidService") {}
    int OnRemoteRequest(uint32_t code, TAVO::MessageParcel& data, TAVO::MessageParcel& reply,
                        TAVO::MessageOption& option) override;
};

TAVO::sptr<TAVO::ISystemAbilityManager> Manager();

// "status N".
std::string Status(int32_t status);
// "object PID", "object silent" when it does not answer, "null", or "no manager".
std::string Check(int32_t systemAbilityId);
// "loaded PID", "failed", "status N" when the load was not accepted, "silence", or "no manager".
std::string Load(int32_t systemAbilityId);
// Returns once the manager has accepted or refused the load. The future waits for the result, as Load does.
std::future<std::string> BeginLoad(int32_t systemAbilityId);
// "status N", or "no manager".
std::string Add(int32_t systemAbilityId);
std::string Remove(int32_t systemAbilityId);

// For programs that a manager starts: notes the start for the test, and waits until that tells its services to go on.
void NoteStart();
void WaitUntilTold();

// PID of "object PID" and "loaded PID"; 0 in any other text.
int PidIn(const std::string& text);

}  // namespace ManagerTest

#endif
