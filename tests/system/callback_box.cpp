// SPDX-License-Identifier: Apache-2.0
#include "system/callback_box.h"

#include <thread>
#include <utility>

#include "ipc/server_codes.h"
#include "tavo/message_parcel.h"
#include "veltra_records.h"

namespace SystemTest {
namespace {

using namespace TAVO;

void WriteToken(MessageParcel& data, const std::string& token)
{
    if (token != "-") {
        data.WriteInterfaceToken(std::u16string(token.begin(), token.end()));
    }
}

// Each record carries its place in the list.
template <typename Record>
void WriteRecords(MessageParcel& data, int32_t count)
{
    Record record;
    for (int32_t i = 0; i < count; ++i) {
        record.long1 = i;
        data.WriteInt32(1);
        record.Marshalling(data);
    }
}

void WriteItem(MessageParcel& data, const std::string& item)
{
    if (item.compare(0, 4, "gpu*") == 0) {
        WriteRecords<Veltra::GpuPerfInfo>(data, std::stoi(item.substr(4)));
    } else if (item.compare(0, 5, "info*") == 0) {
        WriteRecords<Veltra::AppResourceInfo>(data, std::stoi(item.substr(5)));
    } else if (item[0] == '\'') {
        data.WriteString(item.substr(1));
    } else {
        data.WriteInt32(std::stoi(item));
    }
}

std::string Send(const sptr<IRemoteObject>& object, uint32_t code, MessageParcel& data)
{
    if (object == nullptr) {
        return "no such object";
    }
    MessageParcel reply;
    MessageOption option;
    std::string answer = std::to_string(object->SendRequest(code, data, reply, option));
    while (reply.GetReadableBytes() > 0) {
        answer += ' ' + std::to_string(reply.ReadInt32());
    }
    return answer;
}

}  // namespace

void CallbackBox::Keep(const std::string& name, const sptr<IRemoteObject>& object)
{
    MutexLock lock(mutex_);
    objects_[name] = object;
}

int CallbackBox::Drop(const std::string& name)
{
    MutexLock lock(mutex_);
    objects_.erase(name);
    return 0;
}

void CallbackBox::Push(std::istringstream words)
{
    std::thread([this, words = std::move(words)]() mutable {
        std::string name;
        uint32_t code = 0;
        std::string token;
        words >> name >> code >> token;
        MessageParcel data;
        WriteToken(data, token);
        for (std::string item; words >> item;) {
            WriteItem(data, item);
        }
        parent_.Say(Send(Find(name), code, data));
    }).detach();
}

void CallbackBox::Flood(const std::string& name)
{
    std::thread([this, name] {
        std::string answer;
        do {
            MessageParcel data;
            WriteToken(data, "zem.game.perf.iGpNapiEventCallback");
            answer = Send(Find(name), static_cast<uint32_t>(Veltra::CallbackCode::GAME_EVENT), data);
        } while (answer == "0 0");
        parent_.Say("flooded " + answer);
    }).detach();
}

sptr<IRemoteObject> CallbackBox::Find(const std::string& name)
{
    MutexLock lock(mutex_);
    const auto found = objects_.find(name);
    return found != objects_.end() ? found->second : nullptr;
}

}  // namespace SystemTest
