// SPDX-License-Identifier: Apache-2.0
// What binary callers rely on: defaults of the records and the slots of the virtual operations.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <type_traits>

#include "ipc/iveltra_server_interface.h"
#include "veltra_callbacks.h"
#include "veltra_records.h"
#include "veltra_server_client.h"

namespace TAVO::Veltra {
namespace {

TEST(RecordDefaults, UnknownIsMarkedAndTheRestIsZero)
{
    const GameCallbackEventInfo info;
    EXPECT_EQ(info.eventText, "");
    EXPECT_EQ(info.tempLevel, -1);
    EXPECT_EQ(info.thermalMargin, std::numeric_limits<int32_t>::min());
    for (const int32_t zero :
         {info.gpuLoadLevel, info.vertexLoadLevel, info.fragmentLoadLevel, info.textureLoadLevel,
          info.bandwidthLoadLevel, info.currentFrequency, info.thermalTrend, info.extraValue, info.resultCode}) {
        EXPECT_EQ(zero, 0);
    }
    const AppResourceInfo resource;
    EXPECT_EQ(resource.int1, 1);
    EXPECT_EQ(resource.int2, 0);
    EXPECT_EQ(resource.long1, 0);
    EXPECT_EQ(resource.int3, 0);
    EXPECT_EQ(resource.text1 + resource.text2 + resource.text3 + resource.text4, "");
}

// The order in which a vtable holds its operations, as the ABI of this platform writes it into a member pointer.
template <typename Member>
size_t Slot(Member member)
{
    uintptr_t word = 0;
    std::memcpy(&word, &member, sizeof(word));
    EXPECT_EQ(word % 2, 1u) << "not virtual";
    return word / sizeof(void*);
}

TEST(VirtualSlots, CallbackBasesHaveTheirOperationBehindTheDestructor)
{
    EXPECT_EQ(Slot(&GameEventCallbackBase::OnGameCallbackEvent), 2u);
    EXPECT_EQ(Slot(&GpuCounterCallBackBase::OnGpuData), 2u);
    EXPECT_EQ(Slot(&GetAppPrioritysCallbackBase::OnGetAppPrioritys), 2u);
    EXPECT_EQ(Slot(&QueryAppResourceInfoCallbackBase::OnQueryAppResourceInfos), 2u);
    EXPECT_TRUE(std::has_virtual_destructor_v<VeltraClient>);
    EXPECT_EQ(sizeof(VeltraClient), sizeof(void*));
}

TEST(VirtualSlots, RemoteInterfacesKeepTheirOrder)
{
    const size_t first = Slot(&IRemoteBroker::AsObject) + 1;
    EXPECT_EQ(Slot(&IGpNapiEventCallback::OnGameCallbackEvent), first);
    EXPECT_EQ(Slot(&IGpuCounterNativeCallback::OnGpuData), first);
    EXPECT_EQ(Slot(&IResourcePreDownloadNativeCallback::OnGetAppPrioritys), first);
    EXPECT_EQ(Slot(&IResourcePreDownloadNativeCallback::OnQueryAppResourceInfos), first + 1);
    using Server = IVeltraServerInterface;
    const size_t slots[] = {
        Slot(&Server::RegisterCallBack),
        Slot(&Server::UnRegisterCallBack),
        Slot(&Server::UpdateGameInfo),
        Slot(&Server::CallAuth),
        Slot(&Server::ReportGameEvent),
        Slot(&Server::SyncAppType),
        Slot(&Server::ReportRenderThread),
        Slot(&Server::RegisterCallbackForGraphic),
        Slot(&Server::StartGetGpuPerfInfo),
        Slot(&Server::StopGetGpuPerfInfo),
        Slot(&Server::GetSystemFunctionStatus),
        Slot(&Server::QueryGameState),
        Slot(&Server::NotifyGameEvent),
        Slot(&Server::GetDeviceInfo),
        Slot(&Server::QueryAppResourceInfos),
        Slot(&Server::GetAppPrioritys),
        Slot(&Server::NotifyAppResourceDownLoadResults),
    };
    for (size_t i = 0; i < std::size(slots); ++i) {
        EXPECT_EQ(slots[i], first + i) << "operation " << i + 1;
    }
}

TEST(Descriptors, AreTheOnesThatTheServiceCompares)
{
    EXPECT_EQ(IVeltraServerInterface::GetDescriptor(), u"zem.game.perf.iVeltraServerInterface");
    EXPECT_EQ(IGpNapiEventCallback::GetDescriptor(), u"zem.game.perf.iGpNapiEventCallback");
    EXPECT_EQ(IGpuCounterNativeCallback::GetDescriptor(), u"zem.game.perf.IGpuCounterNativeCallback");
    EXPECT_EQ(IResourcePreDownloadNativeCallback::GetDescriptor(), u"zem.game.perf.IResourcePreDownloadNativeCallback");
}

}  // namespace
}  // namespace TAVO::Veltra
