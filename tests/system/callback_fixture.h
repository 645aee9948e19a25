// SPDX-License-Identifier: Apache-2.0
// A test service that pushes what its stdin says, and callbacks of this process that take it.
#ifndef VELTRA_TESTS_SYSTEM_CALLBACK_FIXTURE_H
#define VELTRA_TESTS_SYSTEM_CALLBACK_FIXTURE_H

#include <memory>
#include <string>
#include <vector>

#include "support/notes.h"
#include "system/system_fixture.h"

namespace SystemTest {

using TestSupport::Living;
using TestSupport::Notes;
using TestSupport::Noting;
using TestSupport::SharedNotes;

// Requests to the test service that reach the callback of this kind; a record or text more or less does not matter.
constexpr char PUSH_EVENT[] = "push events 7 zem.game.perf.iGpNapiEventCallback 'text 1 2 3";
constexpr char PUSH_GPU[] = "push gpu 12 zem.game.perf.IGpuCounterNativeCallback 1 2 gpu*2";
constexpr char PUSH_PRIORITYS[] = "push prioritys 16 zem.game.perf.IResourcePreDownloadNativeCallback 1 'text";
constexpr char PUSH_INFOS[] = "push infos 18 zem.game.perf.IResourcePreDownloadNativeCallback 1 2 info*2";

class CallbackFixture : public SystemFixture {
protected:
    CallbackFixture()
    {
        StartManager();
        service_ = StartTestService();
    }

    template <typename Body>
    int32_t TakeEvents(Body body, int32_t key = 1)
    {
        return client_.RegisterGameCallback(Living<TAVO::Veltra::EventFunction>(notes_, "events", body), key);
    }
    template <typename Body>
    int32_t TakeGpu(Body body)
    {
        return client_.StartGetGpuPerfInfo(0, Living<TAVO::Veltra::GpuFunction>(notes_, "gpu", body));
    }
    // The service pushes to the object by this name.
    template <typename Body>
    int32_t TakePrioritys(Body body, const std::string& name = "prioritys")
    {
        std::vector<std::string> names = {name};
        return client_.GetAppPrioritys(names, Living<TAVO::Veltra::PrioritysFunction>(notes_, "prioritys", body));
    }
    template <typename Body>
    int32_t TakeInfos(Body body)
    {
        return client_.QueryAppResourceInfos({"infos"},
                                             Living<TAVO::Veltra::ResourceInfoFunction>(notes_, "infos", body));
    }

    const SharedNotes notes_ = std::make_shared<Notes>();
    Child service_;
};

}  // namespace SystemTest

#endif
