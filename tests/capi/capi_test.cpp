// SPDX-License-Identifier: Apache-2.0
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <future>
#include <string>

#include "system/system_fixture.h"
#include "veltra_loader.h"

namespace SystemTest {
namespace {

class CInterface : public SystemFixture {
protected:
    CInterface() { EXPECT_EQ(veltra_load(&veltra_, VELTRA_C_LIBRARY), 0); }

    veltra_library veltra_{};
};

TEST_F(CInterface, ALibraryThatIsMissingIsNotAvailable)
{
    veltra_library missing;
    EXPECT_EQ(veltra_load(&missing, "libveltra_missing.so.1"), VELTRA_NOTHING);
    EXPECT_EQ(missing.call_auth, nullptr);
}

TEST_F(CInterface, TheFirstProgramRuns)
{
    StartStory();
    Child program = Child::Start({"veltra_minimal_c"});
    const std::optional<std::string> line = program.Pipe().Receive();
    EXPECT_EQ(line.value_or("").rfind("temperature level ", 0), 0u) << line.value_or("nothing");
    EXPECT_EQ(program.WaitForExit(), "exit 0");
}

TEST_F(CInterface, ASessionHasStateEventsAndBatches)
{
    StartStory();
    veltra_options options = VELTRA_INIT(veltra_options);
    options.gpu_interval_ms = 50;
    options.game_name = "com.example.c";
    veltra_session* session = nullptr;
    ASSERT_EQ(veltra_.session_open(&options, &session), 0);
    int seen[3] = {};
    const auto note = [](void* user, const veltra_event* event) {
        ++static_cast<int*>(user)[event->kind];
        EXPECT_TRUE(event->kind != VELTRA_EVENT_GPU || event->samples[0].uints[0] == 70);
    };
    EXPECT_TRUE(WaitFor([&] {
        veltra_.session_dispatch(session, note, seen, 100, nullptr);
        return seen[VELTRA_EVENT_DEVICE] > 0 && seen[VELTRA_EVENT_SERVICE] > 0 && seen[VELTRA_EVENT_GPU] > 0;
    }));
    veltra_snapshot snapshot = VELTRA_INIT(veltra_snapshot);
    EXPECT_EQ(veltra_.session_latest(session, &snapshot), 0);
    EXPECT_EQ(snapshot.temperature.value, 50);
    EXPECT_EQ(snapshot.battery_percent.source, nullptr);
    EXPECT_STREQ(snapshot.level_from.text, "scenario");
    EXPECT_EQ(veltra_.session_update_game_info(session, 3, "com.example.c", 0), 0);
    veltra_game_state state = VELTRA_INIT(veltra_game_state);
    EXPECT_TRUE(WaitFor([&] { return veltra_.query_game_state(&state) == 0 && state.state == 3; }));
    EXPECT_STREQ(state.bundle_name, "com.example.c");
    veltra_.session_close(session);
}

TEST_F(CInterface, ASessionSendsItsReportsAndHasTheDetails)
{
    if (::syscall(SYS_openat2, -1, "", nullptr, 0) != 0 && errno == ENOSYS) {
        GTEST_SKIP() << "this emulator has no openat2, without which the service reads no file";
    }
    WriteRealAbility("phone");
    StartManager();
    veltra_session* session = nullptr;
    ASSERT_EQ(veltra_.session_open(nullptr, &session), 0);
    const char* const texts[] = {"mode"};
    const veltra_game_info info = VELTRA_INIT(veltra_game_info);
    const veltra_download_result results[2] = {VELTRA_INIT(veltra_download_result),
                                               VELTRA_INIT(veltra_download_result)};
    EXPECT_EQ(veltra_.session_report_game_event(session, &info), 0);
    EXPECT_EQ(veltra_.session_report_render_thread(session, "a", "b", 5), 0);
    EXPECT_EQ(veltra_.session_notify_game_event(session, 1, "menu", texts, texts, 1), 0);
    EXPECT_EQ(veltra_.session_notify_app_resource_down_load_results(session, results, 2), 0);
    veltra_status status = VELTRA_INIT(veltra_status);
    EXPECT_TRUE(WaitFor([&] { return veltra_.session_status(session, &status) == 0 && status.reports_sent == 4; }));
    EXPECT_EQ(status.reports_failed, 0u);
    std::string entries;
    const auto note = [](void* user, const veltra_details* details) {
        std::string& list = *static_cast<std::string*>(user) = details->document[0] == '{' ? "document" : "";
        for (size_t i = 0; i < details->cpu_frequency_count; ++i) {
            const veltra_cpu_frequency& each = details->cpu_frequencies[i];
            list += std::string(" ") + each.key + "/" + each.policy + "=" + std::to_string(each.mhz);
        }
        for (size_t i = 0; i < details->ignored_sensor_count; ++i) {
            list += std::string(" ") + details->ignored_sensors[i].sensor;
        }
    };
    EXPECT_TRUE(WaitFor([&] { return veltra_.session_details(session, note, &entries) == 0 && !entries.empty(); }));
    EXPECT_EQ(entries,
              "document cpuFrequencies/policy0=1804 cpuFrequencies/policy7=2200 cpuFrequencyCaps/policy0=1804 "
              "cpuFrequencyCaps/policy7=2000 cpuFrequencyMaxima/policy0=1804 cpuFrequencyMaxima/policy7=2841 "
              "thermal soc_thermal/thermal_zone7 thermal xo-therm/thermal_zone6");
    veltra_.session_close(session);
}

TEST_F(CInterface, TheHandlerOfASessionRunsWithoutDispatchAndMayCloseIt)
{
    StartStory();
    struct Closer {
        const veltra_library& veltra;
        std::promise<veltra_session*> opened;
        std::promise<int> closed;
    } closer{veltra_, {}, {}};
    veltra_options options = VELTRA_INIT(veltra_options);
    options.handler_user = &closer;
    options.handler = [](void* user, const veltra_event* event) {
        if (event->kind == VELTRA_EVENT_DEVICE) {
            Closer& given = *static_cast<Closer*>(user);
            given.veltra.session_close(given.opened.get_future().get());
            given.closed.set_value(event->info->temp_level);
        }
    };
    veltra_session* session = nullptr;
    ASSERT_EQ(veltra_.session_open(&options, &session), 0);
    closer.opened.set_value(session);
    EXPECT_GE(closer.closed.get_future().get(), 0);
}

// An older caller has smaller structures, and a caller that forgot the size is refused.
TEST_F(CInterface, WritesAtMostTheCallersSize)
{
    StartStory();
    veltra_device_info info;
    std::memset(&info, 0x55, sizeof(info));
    info.size = offsetof(veltra_device_info, gpu_load_level);
    EXPECT_EQ(veltra_.get_device_info(nullptr, 0, &info), 0);
    EXPECT_LE(info.temp_level, 5);
    EXPECT_EQ(info.gpu_load_level, 0x55555555);
    EXPECT_EQ(veltra_.get_device_info(nullptr, 1, &info), VELTRA_BAD_ARGUMENT);
    info.size = 0;
    EXPECT_EQ(veltra_.get_device_info(nullptr, 0, &info), VELTRA_BAD_ARGUMENT);
}

TEST_F(CInterface, ResultsOfBothLibrariesHaveADescription)
{
    veltra_result_description text = VELTRA_INIT(veltra_result_description);
    EXPECT_EQ(veltra_.describe_result(VELTRA_QUEUE_FULL, &text), 0);
    EXPECT_STREQ(text.name, "VELTRA_QUEUE_FULL");
    EXPECT_EQ(veltra_.describe_result(1010310014, &text), 0);
    EXPECT_STREQ(text.name, "RESULT_NO_SERVICE");
    EXPECT_EQ(veltra_.describe_result(4711, &text), VELTRA_NOTHING);
}

TEST_F(CInterface, EveryOperationIsAnswered)
{
    StartStory();
    std::atomic<int> calls{0};
    const char* const names[] = {"deviceState"};
    const auto count = [](void* user, auto...) { ++*static_cast<std::atomic<int>*>(user); };
    const auto counted = [](void* user, auto...) {
        ++*static_cast<std::atomic<int>*>(user);
        return 0;
    };
    EXPECT_EQ(veltra_.register_game_callback(counted, &calls, 1), 0);
    EXPECT_TRUE(WaitFor([&] { return calls >= 1; }));
    EXPECT_EQ(veltra_.unregister_game_callback(1), 0);
    calls = 0;
    EXPECT_EQ(veltra_.start_get_gpu_perf_info(50, counted, &calls), 0);
    EXPECT_TRUE(WaitFor([&] { return calls >= 1; }));
    EXPECT_EQ(veltra_.stop_get_gpu_perf_info(), 0);
    calls = 0;
    EXPECT_EQ(veltra_.get_system_function_status(names, names, 1, count, &calls), 0);
    EXPECT_EQ(calls, 1);
    const char* const apps[] = {"com.example.racer"};
    EXPECT_EQ(veltra_.get_app_prioritys(apps, 1, counted, &calls), 0);
    EXPECT_EQ(veltra_.query_app_resource_infos(apps, 1, counted, &calls), 0);
    EXPECT_TRUE(WaitFor([&] { return calls == 3; }));
    EXPECT_EQ(veltra_.call_auth("c"), 0);
    EXPECT_EQ(veltra_.update_game_info(1, apps[0], 0), 0);
    EXPECT_EQ(veltra_.sync_app_type(apps[0], 0, count, &calls), 0);
    EXPECT_EQ(calls, 4);
    veltra_game_info info = VELTRA_INIT(veltra_game_info);
    info.int32_value = 7;
    EXPECT_EQ(veltra_.report_game_event(&info), 0);
    veltra_game_state state = VELTRA_INIT(veltra_game_state);
    EXPECT_TRUE(WaitFor([&] { return veltra_.query_game_state(&state) == 0 && state.state == 7; }));
    EXPECT_EQ(veltra_.report_render_thread("a", "b", 5), 0);
    EXPECT_EQ(veltra_.notify_game_event(1, "menu", names, names, 1), 0);
    veltra_download_result results[2] = {VELTRA_INIT(veltra_download_result), VELTRA_INIT(veltra_download_result)};
    EXPECT_EQ(veltra_.notify_app_resource_down_load_results(results, 2), 0);
}

}  // namespace
}  // namespace SystemTest
