// SPDX-License-Identifier: Apache-2.0
#include "scenario/fault_plan.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <string_view>
#include <thread>

#include "base/service_result.h"

namespace TAVO::Veltra {

namespace {

constexpr double MOST_SECONDS = 1e9;
constexpr double FOR_GOOD = std::numeric_limits<double>::infinity();
constexpr size_t MAX_TEXT_BYTES = 65536;
constexpr char CUT_TEXT[] = "{\"tempLevel\": ";

struct OperationName {
    const char* name;
    ServerCode code;
};
constexpr OperationName OPERATIONS[] = {
    {"ReportGameEvent", ServerCode::REPORT_GAME_EVENT},
    {"NotifyGameEvent", ServerCode::NOTIFY_GAME_EVENT},
    {"SyncAppType", ServerCode::SYNC_APP_TYPE},
    {"ReportRenderThread", ServerCode::REPORT_RENDER_THREAD},
    {"RegisterCallBack", ServerCode::REGISTER_CALL_BACK},
    {"UnRegisterCallBack", ServerCode::UN_REGISTER_CALL_BACK},
    {"UpdateGameInfo", ServerCode::UPDATE_GAME_INFO},
    {"CallAuth", ServerCode::CALL_AUTH},
    {"StartGetGpuPerfInfo", ServerCode::START_GET_GPU_PERF_INFO},
    {"StopGetGpuPerfInfo", ServerCode::STOP_GET_GPU_PERF_INFO},
    {"GetDeviceInfo", ServerCode::GET_DEVICE_INFO},
    {"GetAppPrioritys", ServerCode::GET_APP_PRIORITYS},
    {"QueryAppResourceInfos", ServerCode::QUERY_APP_RESOURCE_INFOS},
    {"NotifyAppResourceDownLoadResults", ServerCode::NOTIFY_APP_RESOURCE_DOWN_LOAD_RESULTS},
    {"RegisterCallbackForGraphic", ServerCode::REGISTER_CALLBACK_FOR_GRAPHIC},
    {"GetSystemFunctionStatus", ServerCode::GET_SYSTEM_FUNCTION_STATUS},
    {"QueryGameState", ServerCode::QUERY_GAME_STATE},
};

// The row whose name the node has, or a complaint.
template <typename Row, size_t COUNT, typename NameOf>
const Row& FindNamed(const ConfigNode& node, const Row (&rows)[COUNT], NameOf nameOf)
{
    const std::string name = node.Text(MAX_TEXT_BYTES);
    const auto found =
        std::find_if(std::begin(rows), std::end(rows), [&](const Row& row) { return name == nameOf(row); });
    if (found == std::end(rows)) {
        node.Fail("there is no \"" + name + "\"");
    }
    return *found;
}

}  // namespace

FaultPlan FaultPlan::Parse(const ConfigNode& node)
{
    FaultPlan plan;
    for (const ConfigNode& item : node.Items(MAX_FAULTS)) {
        plan.faults_.push_back(ParseFault(item));
    }
    return plan;
}

FaultPlan::Fault FaultPlan::ParseFault(const ConfigNode& node)
{
    struct KindName {
        const char* name;
        Kind kind;
    };
    static constexpr KindName KINDS[] = {
        {"die", Kind::DIE},          {"hang", Kind::HANG}, {"refuse", Kind::REFUSE}, {"shortReply", Kind::SHORT_REPLY},
        {"badText", Kind::BAD_TEXT},
    };
    node.ExpectKeys({"kind", "at", "for", "operation", "code", "text"});
    Fault fault;
    fault.kind = FindNamed(node.Member("kind"), KINDS, [](const KindName& row) { return row.name; }).kind;
    fault.from = node.NumberOr("at", 0, 0, MOST_SECONDS);
    fault.until = node.Has("for") ? fault.from + node.Member("for").Number(0, MOST_SECONDS) : FOR_GOOD;
    if (node.Has("operation")) {
        fault.operation =
            FindNamed(node.Member("operation"), OPERATIONS, [](const OperationName& row) { return row.name; }).code;
    }
    if (fault.kind == Kind::BAD_TEXT) {
        if (fault.operation.value_or(ServerCode::GET_DEVICE_INFO) != ServerCode::GET_DEVICE_INFO) {
            node.Member("operation").Fail("only GetDeviceInfo answers with a text to spoil");
        }
        fault.operation = ServerCode::GET_DEVICE_INFO;
    }
    fault.code = static_cast<int32_t>(node.IntegerOr("code", SERVICE_NOT_SUPPORTED, INT32_MIN, INT32_MAX));
    if (fault.code == 0) {
        node.Member("code").Fail("0 is no refusal");
    }
    fault.text = node.TextOr("text", CUT_TEXT, MAX_TEXT_BYTES);
    return fault;
}

const FaultPlan::Fault* FaultPlan::Find(ServerCode code, double now) const
{
    const auto found = std::find_if(faults_.begin(), faults_.end(), [&](const Fault& fault) {
        return now >= fault.from && now < fault.until && fault.operation.value_or(code) == code;
    });
    return found == faults_.end() ? nullptr : &*found;
}

int32_t FaultPlan::Before(ServerCode code, const ServiceClock& clock) const
{
    const Fault* fault = Find(code, clock.Now());
    if (fault == nullptr) {
        return 0;
    }
    if (fault->kind == Kind::DIE) {
        Die();
    }
    if (fault->kind == Kind::REFUSE) {
        return fault->code;
    }
    while (fault->kind == Kind::HANG && clock.Now() < fault->until) {
        std::this_thread::sleep_until(clock.At(fault->until));
    }
    return 0;
}

void FaultPlan::After(ServerCode code, MessageParcel& reply, double now) const
{
    const Fault* fault = Find(code, now);
    if (fault == nullptr) {
        return;
    }
    if (fault->kind == Kind::SHORT_REPLY) {
        const std::string written(reinterpret_cast<const char*>(reply.GetData()), reply.GetDataSize());
        reply.SetData(written.data(), written.size() / 2 / Parcel::SLOT * Parcel::SLOT);
    } else if (fault->kind == Kind::BAD_TEXT) {
        reply.SetData(nullptr, 0);
        reply.WriteInt32(0);
        reply.WriteString(fault->text);
    }
}

double FaultPlan::DeathTime() const
{
    double time = FOR_GOOD;
    for (const Fault& fault : faults_) {
        if (fault.kind == Kind::DIE && !fault.operation) {
            time = std::min(time, fault.from);
        }
    }
    return time;
}

void FaultPlan::Die()
{
    std::raise(SIGKILL);
    std::abort();  // not reached
}

}  // namespace TAVO::Veltra
