// SPDX-License-Identifier: Apache-2.0
#include "support/fake_remote_object.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "ipc/iveltra_server_interface.h"

namespace TAVO::Veltra {

FakeRemoteObject::FakeRemoteObject(Answer answer)
    : FakeRemoteObject(std::move(answer), IVeltraServerInterface::GetDescriptor())
{
}

FakeRemoteObject::FakeRemoteObject(Answer answer, std::u16string descriptor)
    : answer_(std::move(answer)), descriptor_(std::move(descriptor))
{
}

sptr<FakeRemoteObject> FakeRemoteObject::FailingWith(int status)
{
    return MakeRef<FakeRemoteObject>([status](uint32_t, MessageParcel&, MessageParcel&) { return status; });
}

int FakeRemoteObject::SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    {
        MutexLock lock(mutex_);
        requests_.push_back({code, option.GetFlags(), option.GetWaitTime()});
        if (!isAlive_) {
            return IPC_DEAD_OBJECT;
        }
    }
    return answer_ ? answer_(code, data, reply) : IPC_OK;
}

bool FakeRemoteObject::AddDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    MutexLock lock(mutex_);
    if (!isAlive_ || recipient == nullptr) {
        return false;
    }
    recipients_.push_back(recipient);
    return true;
}

bool FakeRemoteObject::RemoveDeathRecipient(const sptr<DeathRecipient>& recipient)
{
    MutexLock lock(mutex_);
    const auto found = std::find(recipients_.begin(), recipients_.end(), recipient);
    if (found == recipients_.end()) {
        return false;
    }
    recipients_.erase(found);
    return true;
}

bool FakeRemoteObject::IsAlive() const
{
    MutexLock lock(mutex_);
    return isAlive_;
}

void FakeRemoteObject::Die()
{
    std::vector<sptr<DeathRecipient>> told;
    {
        MutexLock lock(mutex_);
        isAlive_ = false;
        told.swap(recipients_);
    }
    std::thread delivery([this, &told] {
        for (const sptr<DeathRecipient>& recipient : told) {
            recipient->OnRemoteDied(wptr<IRemoteObject>(this));
        }
    });
    delivery.join();
}

std::vector<FakeRemoteObject::Request> FakeRemoteObject::Requests() const
{
    MutexLock lock(mutex_);
    return requests_;
}

size_t FakeRemoteObject::DeathRecipients() const
{
    MutexLock lock(mutex_);
    return recipients_.size();
}

}  // namespace TAVO::Veltra
