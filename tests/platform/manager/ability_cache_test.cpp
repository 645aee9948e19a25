// SPDX-License-Identifier: Apache-2.0
// A client must never be given a service that the manager has already declared gone.
#include "manager/client/ability_cache.h"

#include <gtest/gtest.h>

#include "tavo/message_parcel.h"

namespace {

using namespace TAVO;
using namespace TAVO::Manager;

class Service : public IPCObjectStub {
public:
    bool IsAlive() const override { return isAlive; }
    bool isAlive = true;
};

class AbilityCacheTest : public ::testing::Test {
protected:
    sptr<AbilityCache> cache{new AbilityCache};
    sptr<Service> first{new Service};
    sptr<Service> second{new Service};
};

TEST_F(AbilityCacheTest, OnlyAnswersNotOlderThanTheLastNoticeAreKept)
{
    struct Step {
        enum { ANSWER, CHANGED } what;
        int64_t number;
        int object;      // 0: none, else first or second
        int remembered;  // afterwards
    };
    const std::vector<std::vector<Step>> stories{
        {{Step::ANSWER, 1, 1, 1}, {Step::CHANGED, 2, 0, 0}, {Step::ANSWER, 3, 2, 2}},
        {{Step::CHANGED, 2, 0, 0}, {Step::ANSWER, 1, 1, 0}},  // the notice overtook the answer
        {{Step::CHANGED, 2, 0, 0}, {Step::ANSWER, 2, 0, 0}, {Step::ANSWER, 1, 1, 0}},
        {{Step::ANSWER, 3, 2, 2}, {Step::ANSWER, 1, 1, 2}},   // answers overtook each other
        {{Step::ANSWER, 3, 2, 2}, {Step::CHANGED, 2, 0, 2}},  // the notice was known already
        {{Step::ANSWER, 1, 1, 1}, {Step::ANSWER, 2, 0, 0}},   // "not running" is not remembered
    };
    for (size_t i = 0; i < stories.size(); ++i) {
        cache = new AbilityCache;
        cache->BeginQuestion(7);
        for (const Step& step : stories[i]) {
            SCOPED_TRACE("story " + std::to_string(i) + ", number " + std::to_string(step.number));
            const sptr<IRemoteObject> objects[] = {nullptr, first, second};
            if (step.what == Step::ANSWER) {
                cache->KeepAnswer(7, step.number, objects[step.object]);
            } else {
                cache->Forget(7, step.number);
            }
            EXPECT_EQ(cache->FindLiving(7), objects[step.remembered]);
        }
    }
}

TEST_F(AbilityCacheTest, DeadServicesAndIdsWithoutAQuestionAreNotFound)
{
    cache->Forget(7, 5);  // takes no memory
    cache->BeginQuestion(7);
    cache->BeginQuestion(8);
    cache->KeepAnswer(7, 1, first);
    EXPECT_EQ(cache->FindLiving(7), first);
    EXPECT_EQ(cache->FindLiving(8), nullptr);
    first->isAlive = false;
    EXPECT_EQ(cache->FindLiving(7), nullptr);
    for (int32_t id = 100; id < 100 + static_cast<int32_t>(AbilityCache::MAX_IDS); ++id) {
        cache->BeginQuestion(id);
    }
    cache->KeepAnswer(99 + AbilityCache::MAX_IDS, 1, second);
    EXPECT_EQ(cache->FindLiving(99 + AbilityCache::MAX_IDS), nullptr) << "ids are bounded";
}

TEST_F(AbilityCacheTest, TheObserverForgetsAndRefusesWhatDoesNotDecode)
{
    const sptr<AbilityObserver> observer(new AbilityObserver(cache));
    cache->BeginQuestion(7);
    cache->KeepAnswer(7, 1, first);
    const auto send = [&observer](const std::u16string& token, bool isWhole) {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option;
        data.WriteInterfaceToken(token);
        data.WriteInt32(7);
        isWhole ? data.WriteInt64(2) : data.WriteInt32(2);
        return observer->OnRemoteRequest(AbilityObserver::ABILITY_CHANGED, data, reply, option);
    };
    EXPECT_EQ(send(u"tavo.IAbilityobserver", true), IPC_BAD_MESSAGE);
    EXPECT_EQ(send(AbilityObserver::Token(), false), IPC_BAD_MESSAGE);
    EXPECT_EQ(cache->FindLiving(7), first);
    EXPECT_EQ(send(AbilityObserver::Token(), true), IPC_OK);
    EXPECT_EQ(cache->FindLiving(7), nullptr);
}

}  // namespace
