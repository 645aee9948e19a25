// SPDX-License-Identifier: Apache-2.0
// Does the service act on whole requests only, once and with what was sent, and refuse the rest with a code?
#include "input.h"
#include "service_result.h"
#include "support/fake_remote_object.h"
#include "support/forwarding_server.h"
#include "support/server_operations.h"
#include "veltra_result.h"

namespace {

using Fuzz::Require;
using namespace TAVO;
using namespace TAVO::Veltra;

bool IsRefusal(int32_t code)
{
    return code == SERVICE_BAD_REQUEST || code == RESULT_TOKEN_REFUSED || code == IPC_UNKNOWN_CODE;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    const auto& operations = ServerOperations();
    const ServerOperation& operation = operations[input.ConsumeIntegralInRange<size_t>(0, operations.size() - 1)];
    const bool isHonest = input.ConsumeBool();
    MessageParcel data;
    data.WriteInterfaceToken(isHonest || input.ConsumeBool() ? IVeltraServerInterface::GetDescriptor()
                                                             : Fuzz::TakeText16(input));
    if (isHonest || input.ConsumeBool()) {
        WriteItems(data, operation.payload);
    }
    if (!isHonest) {
        Fuzz::WriteItems(input, data);
        Fuzz::Damage(input, data);
    }
    std::string encodedAgain;
    const auto next = MakeRef<FakeRemoteObject>([&](uint32_t, MessageParcel& forwarded, MessageParcel& reply) {
        encodedAgain = Bytes(forwarded);
        WriteItems(reply, operation.reply);
        return 0;
    });
    ForwardingServer server(next);
    const std::string sent = Bytes(data);
    MessageParcel reply;
    MessageOption option;
    const int status = server.OnRemoteRequest(operation.code, data, reply, option);
    if (next->Requests().empty()) {
        Require(!isHonest, "a whole request is served");
        Require(IsRefusal(status) || (status == 0 && IsRefusal(reply.ReadInt32())), "a refusal has its code");
        return 0;
    }
    Require(next->Requests().size() == 1, "a request is served once");
    Require(encodedAgain.size() <= sent.size(), "nothing is made up that was not sent");
    Require(!isHonest || (encodedAgain == sent && Bytes(reply) == Bytes(operation.reply)), "all that was sent arrives");
    return 0;
}
