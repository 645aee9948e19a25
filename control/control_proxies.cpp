// SPDX-License-Identifier: Apache-2.0
// Each question of a tool is one request, encoded as the signature of the operation tells. A reply is whole or
// IPC_BAD_MESSAGE: a tool may meet a service of another version, so a text beyond the limit is refused as well.
// `answer` is set only with a whole reply, else it is empty. A batch of records is one-way: the service must never wait
// for a tool that reads slowly.
#include "control/control_proxies.h"

#include <utility>

#include <tavo/typed_request.h>

namespace TAVO::Veltra {

BrokerDelegator<VeltraControlProxy> VeltraControlProxy::delegator_;
BrokerDelegator<VeltraWatcherProxy> VeltraWatcherProxy::delegator_;

namespace {

constexpr int FIRST_CONTACT_SECONDS = 1;

// One request; the answer is the last result of each operation that has one.
template <typename Operation, typename... Arguments>
int32_t Ask(const sptr<IRemoteObject>& object, ControlCode code, Operation operation, std::string& answer,
            const Arguments&... arguments)
{
    answer.clear();
    std::string text;
    const int32_t result = CallRemote(object, code, operation, arguments..., text);
    // Checked after reading: the transport has limited the message to 64 MiB before.
    if (text.size() > MAX_CONTROL_ANSWER_BYTES) {
        return IPC_BAD_MESSAGE;
    }
    answer = std::move(text);
    return result;
}

}  // namespace

int32_t VeltraControlProxy::Describe(std::string& answer)
{
    return Ask(Remote(), ControlCode::DESCRIBE, &IVeltraControl::Describe, answer);
}

int32_t VeltraControlProxy::Explain(std::string& answer)
{
    return Ask(Remote(), ControlCode::EXPLAIN, &IVeltraControl::Explain, answer);
}

int32_t VeltraControlProxy::Watch(const std::string& filter, const sptr<IVeltraWatcher>& watcher, std::string& answer)
{
    return Ask(Remote(), ControlCode::WATCH, &IVeltraControl::Watch, answer, filter, watcher);
}

int32_t VeltraControlProxy::Unwatch()
{
    return CallRemote(Remote(), ControlCode::UNWATCH, &IVeltraControl::Unwatch);
}

int32_t VeltraControlProxy::Simulate(const std::string& command, std::string& answer)
{
    return Ask(Remote(), ControlCode::SIMULATE, &IVeltraControl::Simulate, answer, command);
}

int32_t VeltraWatcherProxy::OnRecords(const std::string& lines, uint64_t dropped)
{
    MessageParcel reply;
    // Only connecting to the watcher's process may wait, for at most this long; the send itself never does.
    return SendOperation(Remote(), MessageOption(MessageOption::FLAG_ONE_WAY, FIRST_CONTACT_SECONDS), reply,
                         WatcherCode::RECORDS, &IVeltraWatcher::OnRecords, lines, dropped);
}

}  // namespace TAVO::Veltra
