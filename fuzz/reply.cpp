// SPDX-License-Identifier: Apache-2.0
// Does each operation return for any answer what its contract says: the result in it, a code, or its default?
#include <new>

#include "input.h"
#include "support/fake_remote_object.h"
#include "support/server_operations.h"
#include "veltra_result.h"

namespace {

using Fuzz::Require;
using namespace TAVO;
using namespace TAVO::Veltra;

// More pairs than any operation takes, with a text or a flag each.
void WritePairs(FuzzedDataProvider& input, MessageParcel& answer)
{
    const int count = input.ConsumeIntegralInRange(0, MAX_APP_TYPES + 9);
    const bool isText = input.ConsumeBool();
    answer.WriteInt32(count);
    for (int i = 0; i < count; ++i) {
        answer.WriteString(std::to_string(i));
        isText ? answer.WriteString("on") : answer.WriteBool(true);
    }
}

template <typename Value>
void RequireMap(const std::map<std::string, Value>& map, bool isAnswered, int32_t count, int32_t cap, size_t bytes)
{
    const auto most = static_cast<size_t>(isAnswered ? std::clamp(count, 0, cap) : 0);
    Require(map.size() <= most && (most == 0) == map.empty(), "as many pairs as announced, within the cap");
    // A pair that was announced and is missing is read as one pair of defaults.
    Require(map.size() <= bytes / Parcel::SLOT + 1, "no more than the answer holds");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    MessageParcel answer;
    const bool isThrowing = input.ConsumeIntegralInRange(0, 15) == 0;
    const int status = input.ConsumeBool() ? IPC_OK : input.ConsumeIntegral<int32_t>();
    if (input.ConsumeIntegralInRange(0, 7) == 0) {
        WritePairs(input, answer);
    } else if (input.ConsumeBool()) {
        answer.WriteInt32(RESULT_OK);
    }
    Fuzz::WriteItems(input, answer);
    Fuzz::Damage(input, answer);
    VeltraServerProxy proxy(MakeRef<FakeRemoteObject>([&](uint32_t, MessageParcel&, MessageParcel& reply) {
        reply.SetData(answer.GetData(), answer.GetDataSize());
        return isThrowing ? throw std::bad_alloc() : status;
    }));
    const bool isAnswered = status == IPC_OK && !isThrowing;
    const int32_t first = answer.ReadInt32();
    const int32_t whenFailed[] = {RESULT_NO_SERVICE, isThrowing ? IPC_BROKEN : status,
                                  isThrowing ? RESULT_NO_SERVICE : first};
    for (const ServerOperation& operation : ServerOperations()) {
        const int32_t result = operation.call(proxy);
        Require(!operation.HasResult() ||
                    result == (isAnswered ? first : whenFailed[static_cast<size_t>(operation.report)]),
                "the result of the answer, or that of a failure");
    }
    RequireMap(proxy.SyncAppType("text", 1), isAnswered, first, MAX_APP_TYPES, answer.GetDataSize());
    std::map<std::string, std::string> query = {{"a", "b"}};
    RequireMap(proxy.GetSystemFunctionStatus(query), isAnswered, first, MAX_FUNCTION_STATUSES, answer.GetDataSize());
    const DeviceInfoResult info = proxy.GetDeviceInfo({{1, {{"a", "b"}}}});
    Require(info.retCode == RESULT_OK || info.result.empty(), "no state without success");
    return 0;
}
