// SPDX-License-Identifier: Apache-2.0
// What each request looks like on the wire, and what becomes of one that cannot be sent.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "ipc/server_operations.h"
#include "support/callback_stubs.h"
#include "support/fake_remote_object.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

constexpr int BROKEN_PIPE = -32;

int32_t ExpectedAfter(Report report, int32_t code, int32_t status)
{
    switch (report) {
        case Report::CODE:
            return code;
        case Report::STATUS:
            return status;
        default:
            return 0;
    }
}

TEST(ServerProxyRequest, CarriesTokenAndPayloadUnderItsCode)
{
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        const auto service = MakeRef<FakeRemoteObject>([&](uint32_t, MessageParcel& data, MessageParcel&) {
            EXPECT_EQ(data.ReadInterfaceToken(), u"zem.game.perf.iVeltraServerInterface");
            ExpectItems(data, operation.payload);
            return 0;
        });
        VeltraServerProxy proxy(service);
        EXPECT_EQ(operation.call(proxy), 0);
        ASSERT_EQ(service->Requests().size(), 1u);
        const FakeRemoteObject::Request request = service->Requests().front();
        EXPECT_EQ(request.code, operation.code);
        EXPECT_EQ(request.flags, operation.code == 1 ? 1 : 0);  // only game events are one-way
        EXPECT_EQ(request.waitTime, 8);
    }
}

TEST(ServerProxyRequest, EmptyCollectionsTravelAsACountOfZero)
{
    const auto service = MakeRef<FakeRemoteObject>([](uint32_t, MessageParcel& data, MessageParcel&) {
        data.ReadInterfaceToken();
        ExpectItems(data, {0});
        return 0;
    });
    VeltraServerProxy proxy(service);
    std::map<std::string, std::string> noQuery;
    std::vector<AppResourceDownLoadResult> noResults;
    proxy.GetDeviceInfo({});
    proxy.GetSystemFunctionStatus(noQuery);
    proxy.NotifyAppResourceDownLoadResults(noResults);
    EXPECT_EQ(service->Requests().size(), 3u);
}

// The resource query alone refuses an empty list, before it looks for the service.
TEST(ServerProxyRequest, ResourceQueryForNoBundleSendsNothing)
{
    const auto service = MakeRef<FakeRemoteObject>();
    for (const sptr<IRemoteObject>& remote : {sptr<IRemoteObject>(service), sptr<IRemoteObject>()}) {
        VeltraServerProxy proxy(remote);
        EXPECT_EQ(proxy.QueryAppResourceInfos({}, MakeRef<SilentResourceCallback>()), 1010310001);
    }
    EXPECT_TRUE(service->Requests().empty());
}

// A dead or refusing service must never look like success to the game.
TEST(ServerProxyFailure, MissingRemoteAndFailedSendYieldNoService)
{
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        VeltraServerProxy refused(FakeRemoteObject::FailingWith(BROKEN_PIPE));
        EXPECT_EQ(operation.call(refused), ExpectedAfter(operation.report, 1010310014, BROKEN_PIPE));
    }
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        VeltraServerProxy unplugged(nullptr);
        const bool isRenderThread = operation.code == 4;  // does not look; the platform's word for it is a dead object
        const bool hasCode = operation.report != Report::EMPTY_MAP && operation.report != Report::NOTHING;
        const int32_t expected = isRenderThread ? IPC_DEAD_OBJECT : hasCode ? 1010310014 : 0;
        EXPECT_EQ(operation.call(unplugged), expected);
    }
}

// Memory that runs out on the way is no reason to leave the caller's bookkeeping half done.
TEST(ServerProxyFailure, RequestThatThrowsOnItsWayHasFailed)
{
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        VeltraServerProxy proxy(
            MakeRef<FakeRemoteObject>([](uint32_t, MessageParcel&, MessageParcel&) -> int { throw std::bad_alloc(); }));
        const int32_t expected =
            operation.report == Report::REPLY ? 1010310014 : ExpectedAfter(operation.report, 1010310014, IPC_BROKEN);
        EXPECT_EQ(operation.call(proxy), expected);
    }
}

TEST(ServerProxyFailure, TokenThatDoesNotFitSendsNothing)
{
    const size_t limit = Parcel::DefaultCapacityLimit();
    for (const ServerOperation& operation : ServerOperations()) {
        SCOPED_TRACE(operation.name);
        const auto service = MakeRef<FakeRemoteObject>();
        VeltraServerProxy proxy(service);
        Parcel::SetDefaultCapacityLimit(64);  // the token takes 80 bytes
        const int32_t result = operation.call(proxy);
        Parcel::SetDefaultCapacityLimit(limit);
        const bool hasCode = operation.report != Report::EMPTY_MAP && operation.report != Report::NOTHING;
        EXPECT_EQ(result, hasCode ? 1010310010 : 0);
        EXPECT_TRUE(service->Requests().empty());
    }
}

// A payload write that fails is not looked at: the request goes out as far as it was written.
TEST(ServerProxyFailure, PayloadThatDoesNotFitIsSentShort)
{
    const auto service = MakeRef<FakeRemoteObject>([](uint32_t, MessageParcel& data, MessageParcel&) {
        data.ReadInterfaceToken();
        ExpectItems(data, {});
        return 0;
    });
    VeltraServerProxy proxy(service);
    const size_t limit = Parcel::DefaultCapacityLimit();
    Parcel::SetDefaultCapacityLimit(84);
    EXPECT_EQ(proxy.CallAuth(std::string(64, 'x')), 0);
    Parcel::SetDefaultCapacityLimit(limit);
    EXPECT_EQ(service->Requests().size(), 1u);
}

class ThrowingBundle : public GameSceneBundle {
public:
    bool Marshalling(Parcel&) const override { throw std::runtime_error("the game's own fault"); }
};

TEST(ServerProxyFailure, BundleThatThrowsIsContained)
{
    const auto service = MakeRef<FakeRemoteObject>();
    VeltraServerProxy proxy(service);
    ThrowingBundle bundle;
    EXPECT_EQ(proxy.NotifyGameEvent(bundle), 1010310014);
    EXPECT_TRUE(service->Requests().empty());
}

TEST(ServerProxyRegistration, CastMakesAProxyForTheServiceOnly)
{
    const auto service = MakeRef<FakeRemoteObject>();
    const sptr<IVeltraServerInterface> proxy = iface_cast<IVeltraServerInterface>(service);
    ASSERT_NE(dynamic_cast<VeltraServerProxy*>(proxy.Get()), nullptr);
    EXPECT_TRUE(proxy->AsObject() == service);
    const auto stranger = MakeRef<FakeRemoteObject>(nullptr, u"zem.game.perf.IVeltraServerInterface");
    EXPECT_TRUE(iface_cast<IVeltraServerInterface>(stranger) == nullptr);
}

}  // namespace
}  // namespace TAVO::Veltra
