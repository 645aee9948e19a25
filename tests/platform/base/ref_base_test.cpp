// SPDX-License-Identifier: Apache-2.0
// An object is destroyed once, by its last strong reference, and a weak pointer never brings it back.
#include "tavo/ref_base.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

namespace TAVO {
namespace {

struct Counted : public virtual RefBase {
    explicit Counted(std::atomic<int>& counter) : destroyed(counter) {}
    ~Counted() override
    {
        value = -1;
        ++destroyed;
    }
    std::atomic<int>& destroyed;
    int value = 42;
};

// Goes to another owner instead of being deleted where the last reference was dropped.
struct HandedOver : public Counted {
    HandedOver(std::atomic<int>& counter, const HandedOver*& newOwner) : Counted(counter), owner(newOwner) {}
    void OnLastStrongRef() const noexcept override { owner = this; }
    const HandedOver*& owner;
};

TEST(RefBase, LastStrongReferenceDestroys)
{
    std::atomic<int> destroyed{0};
    sptr<Counted> first = MakeRef<Counted>(destroyed);
    sptr<RefBase> second = first;
    sptr<Counted> third(std::move(first));
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(third->GetStrongCount(), 2);
    third = third.Get();  // an assignment to itself must not pass through zero
    third = nullptr;
    EXPECT_EQ(destroyed, 0);
    second = nullptr;
    EXPECT_EQ(destroyed, 1);
}

TEST(RefBase, CopyOfAnObjectStartsUncountedAndIsNotPromoted)
{
    std::atomic<int> destroyed{0};
    sptr<Counted> original = MakeRef<Counted>(destroyed);
    wptr<Counted> weak(original);
    wptr<Counted> weakCopy;
    {
        Counted copy(*original);
        EXPECT_EQ(copy.GetStrongCount(), 0);
        weakCopy = wptr<Counted>(&copy);
        EXPECT_FALSE(weakCopy == weak);
        EXPECT_EQ(weakCopy.promote(), nullptr);
    }
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(weakCopy.promote(), nullptr);
    EXPECT_EQ(weak.promote(), original);
}

TEST(WeakPointer, PromotesOnlyWhileStronglyHeld)
{
    std::atomic<int> destroyed{0};
    sptr<Counted> strong = MakeRef<Counted>(destroyed);
    const wptr<Counted> weak(strong);
    const wptr<Counted> copy = weak;
    EXPECT_TRUE(copy == weak);
    strong = weak.promote();
    EXPECT_EQ(strong->GetStrongCount(), 1);
    strong = nullptr;
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(copy.promote(), nullptr);
    EXPECT_EQ(wptr<Counted>().promote(), nullptr);
}

TEST(WeakPointer, ObjectHandedOverAtItsEndIsNotRevived)
{
    std::atomic<int> destroyed{0};
    const HandedOver* owner = nullptr;
    sptr<HandedOver> strong = MakeRef<HandedOver>(destroyed, owner);
    const wptr<HandedOver> weak(strong);
    strong = nullptr;
    ASSERT_NE(owner, nullptr);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(weak.promote(), nullptr);
    owner->IncStrongRef();  // the new owner may count as it likes
    EXPECT_EQ(weak.promote(), nullptr);
    delete owner;
    EXPECT_EQ(weak.promote(), nullptr);
}

// Several threads make their first weak pointers of an object at once, and promote them while the last reference goes:
// each gets a whole object or null, and there is one destruction.
TEST(WeakPointer, FirstUsesAndPromotionsRaceWithEachOtherAndTheLastRelease)
{
    constexpr int PROMOTIONS = 100;  // bounded: the promoters keep the object alive for each other
    for (int round = 0; round < 500; ++round) {
        std::atomic<int> destroyed{0};
        std::atomic<size_t> ready{0};
        sptr<Counted> strong = MakeRef<Counted>(destroyed);
        std::vector<wptr<Counted>> weak(3);
        std::vector<std::thread> promoters;
        for (wptr<Counted>& mine : weak) {
            promoters.emplace_back([&] {
                mine = wptr<Counted>(strong);
                ++ready;
                sptr<Counted> promoted;
                for (int attempt = 0; attempt < PROMOTIONS && (promoted = mine.promote()) != nullptr; ++attempt) {
                    ASSERT_EQ(promoted->value, 42);
                    promoted = nullptr;
                }
            });
        }
        while (ready < weak.size()) {
            std::this_thread::yield();
        }
        strong = nullptr;
        for (std::thread& promoter : promoters) {
            promoter.join();
        }
        ASSERT_EQ(destroyed, 1);
        for (const wptr<Counted>& mine : weak) {
            ASSERT_TRUE(mine == weak.front());
            ASSERT_EQ(mine.promote(), nullptr);
        }
    }
}

// One thread tests and another assigns: the only unlocked use of a shared sptr that is allowed.
TEST(StrongPointer, NullTestBesideAssignmentIsNoRace)
{
    std::atomic<int> destroyed{0};
    std::atomic<bool> done{false};
    sptr<Counted> shared;
    std::thread tester([&] {  // comes to see both
        while (shared == nullptr) {}
        while (shared != nullptr) {}
        done = true;
    });
    int assigned = 0;
    for (; !done; ++assigned) {
        shared = MakeRef<Counted>(destroyed);
        std::this_thread::yield();
        shared = nullptr;
    }
    tester.join();
    EXPECT_EQ(destroyed, assigned);
}

// A promotion of another thread may hold a lock at the moment of the fork; the child must get along without it.
TEST(WeakPointer, ForkedChildNeverWaitsForALock)
{
    std::atomic<int> destroyed{0};
    std::atomic<bool> done{false};
    sptr<Counted> strong = MakeRef<Counted>(destroyed);
    const wptr<Counted> weak(strong);
    std::thread promoter([&] {
        while (!done) {
            weak.promote();
        }
    });
    for (int i = 0; i < 200; ++i) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            alarm(20);
            const bool wasPromoted = weak.promote() != nullptr;
            while (strong->GetStrongCount() > 1) {  // what the promoter held has no owner here
                strong->DecStrongRef();
            }
            strong = nullptr;
            _exit(!wasPromoted && destroyed == 1 ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
    done = true;
    promoter.join();
}

}  // namespace
}  // namespace TAVO
