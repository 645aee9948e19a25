// SPDX-License-Identifier: Apache-2.0
// What binary callers rely on: the slots of the virtual operations.
#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "ipc/iveltra_server_interface.h"
#include "veltra_callbacks.h"
#include "veltra_server_client.h"

namespace TAVO::Veltra {
namespace {

// The order in which a vtable holds its operations, as the ABI of this platform writes it into a member pointer: the mark
// of a virtual one is the lowest bit of the offset, on arm64 that of the second word.
template <typename Member>
size_t Slot(Member member)
{
    uintptr_t words[2] = {};
    static_assert(sizeof(words) == sizeof(member));
    std::memcpy(words, &member, sizeof(words));
#ifdef __aarch64__
    EXPECT_EQ(words[1] % 2, 1u) << "not virtual";
#else
    EXPECT_EQ(words[0] % 2, 1u) << "not virtual";
#endif
    return words[0] / sizeof(void*);
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

}  // namespace
}  // namespace TAVO::Veltra
