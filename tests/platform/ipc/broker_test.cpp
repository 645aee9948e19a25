// SPDX-License-Identifier: Apache-2.0
// Which proxy an interface cast makes, of which object, and who may say so.
#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "tavo/tavo.h"

using namespace std::string_literals;

namespace TAVO {
namespace {

class IGreeter : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"test.IGreeter")
};

class IStranger : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"test.IStranger")
};

// Its name is the greeter's.
class IImpostor : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"test.IGreeter")
};

template <typename T>
class Proxy : public IRemoteProxy<T> {
public:
    using IRemoteProxy<T>::IRemoteProxy;
};

template <typename T>
class Stub : public IRemoteStub<T> {
};

// An object that serves no interface in this process, as a proxy of one elsewhere.
sptr<IRemoteObject> ObjectNamed(const std::u16string& descriptor)
{
    return MakeRef<IPCObjectStub>(descriptor);
}

template <typename T>
sptr<IRemoteBroker> MakeProxy(const sptr<IRemoteObject>& object)
{
    return BrokerCreator<Proxy<T>>()(object);
}

TEST(BrokerRegistration, FirstCreatorOfADescriptorStaysUntilItsOwnerRemovesIt)
{
    BrokerRegistration& registry = BrokerRegistration::Get();
    const std::u16string& name = IGreeter::GetDescriptor();
    const sptr<IRemoteObject> object = ObjectNamed(name);
    const int first = 0;
    const int second = 0;
    const auto made = [&] { return registry.NewInstance(name, object); };
    const auto isGreeter = [&] { return dynamic_cast<Proxy<IGreeter>*>(made().Get()) != nullptr; };

    EXPECT_EQ(made(), nullptr) << "nobody registered";
    EXPECT_FALSE(registry.Register(name, nullptr, &first));
    EXPECT_TRUE(registry.Register(name, MakeProxy<IGreeter>, &first));
    EXPECT_FALSE(registry.Register(name, MakeProxy<IGreeter>, &first)) << "twice";
    EXPECT_FALSE(registry.Register(name, MakeProxy<IImpostor>, &second));
    EXPECT_TRUE(isGreeter());
    registry.Unregister(name, &second);
    registry.Unregister(IStranger::GetDescriptor(), &first);
    EXPECT_TRUE(isGreeter());
    registry.Unregister(name, &first);
    EXPECT_EQ(made(), nullptr);
    EXPECT_TRUE(registry.Register(name, MakeProxy<IImpostor>, &second));
    EXPECT_FALSE(isGreeter());
    registry.Unregister(name, &second);
    const auto withoutMemory = [](const auto&) -> sptr<IRemoteBroker> { throw std::bad_alloc(); };
    EXPECT_TRUE(registry.Register(name, withoutMemory, &first));
    EXPECT_EQ(made(), nullptr);
    registry.Unregister(name, &first);
}

TEST(BrokerRegistration, SecondDelegatorOfADescriptorRemovesNothing)
{
    const sptr<IRemoteObject> object = ObjectNamed(IGreeter::GetDescriptor());
    std::optional<BrokerDelegator<Proxy<IGreeter>>> first(std::in_place);
    {
        const BrokerDelegator<Proxy<IImpostor>> second;
        EXPECT_NE(iface_cast<IGreeter>(object), nullptr);
        EXPECT_EQ(iface_cast<IImpostor>(object), nullptr);
    }
    EXPECT_NE(iface_cast<IGreeter>(object), nullptr);
    first.reset();
    EXPECT_EQ(iface_cast<IGreeter>(object), nullptr);
}

TEST(InterfaceCast, OfALocalObjectIsThatObjectAndOfAnotherAProxyThatHoldsIt)
{
    const BrokerDelegator<Proxy<IGreeter>> delegator;
    const sptr<Stub<IGreeter>> local = MakeRef<Stub<IGreeter>>();
    EXPECT_EQ(iface_cast<IGreeter>(local).Get(), static_cast<IGreeter*>(local.Get()));
    EXPECT_EQ(local->AsObject(), local);
    const sptr<IRemoteObject> object = ObjectNamed(u"test.IGreeter");
    const auto before = object->GetStrongCount();
    {
        const sptr<IGreeter> cast = iface_cast<IGreeter>(object);
        ASSERT_NE(dynamic_cast<Proxy<IGreeter>*>(cast.Get()), nullptr);
        EXPECT_EQ(cast->AsObject(), object);
        EXPECT_NE(iface_cast<IGreeter>(object), cast) << "a proxy of its own each time";
    }
    EXPECT_EQ(object->GetStrongCount(), before);
}

TEST(InterfaceCast, OfAnythingElseIsNull)
{
    const BrokerDelegator<Proxy<IGreeter>> greeter;
    const BrokerDelegator<Proxy<IStranger>> stranger;
    ASSERT_NE(iface_cast<IGreeter>(MakeRef<Stub<IGreeter>>()), nullptr);
    EXPECT_EQ(iface_cast<IGreeter>(sptr<IRemoteObject>()), nullptr);
    EXPECT_EQ(iface_cast<IGreeter>(MakeRef<Stub<IStranger>>()), nullptr);
    EXPECT_EQ(iface_cast<IGreeter>(MakeRef<Stub<IImpostor>>()), nullptr) << "another interface of this name";
    for (const std::u16string& name :
         {u"test.IStranger"s, u""s, u"test.iGreeter"s, u"test.IGreet"s, u"test.IGreeter2"s, u"test.IGreeter\0"s}) {
        EXPECT_EQ(iface_cast<IGreeter>(ObjectNamed(name)), nullptr) << testing::PrintToString(name);
    }
}

// Libraries come and go while others cast.
// A null result alone does not show that a delegator was forgotten.
TEST(InterfaceCast, AForgottenDelegatorLeavesOneWarning)
{
    const Veltra::LogCapture log;
    EXPECT_EQ(iface_cast<IGreeter>(ObjectNamed(u"test.IStranger")), nullptr);
    EXPECT_EQ(iface_cast<IGreeter>(nullptr), nullptr);
    EXPECT_EQ(log.Lines().size(), 0u) << "null for other reasons";
    for (int cast = 0; cast < 3; ++cast) {
        EXPECT_EQ(iface_cast<IStranger>(ObjectNamed(u"test.IStranger")), nullptr);
    }
    EXPECT_EQ(log.Count("no proxy class is registered for test.IStranger"), 1);
}

TEST(BrokerRegistration, ServesSeveralThreadsAtOnce)
{
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 2000;
    const BrokerDelegator<Proxy<IGreeter>> greeter;
    const sptr<IRemoteObject> known = ObjectNamed(IGreeter::GetDescriptor());
    const sptr<IRemoteObject> changing = ObjectNamed(IStranger::GetDescriptor());
    std::atomic<int> registered{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&] {
            BrokerRegistration& registry = BrokerRegistration::Get();
            const int self = 0;
            for (int round = 0; round < ROUNDS; ++round) {
                if (registry.Register(IStranger::GetDescriptor(), MakeProxy<IStranger>, &self)) {
                    EXPECT_EQ(registered.fetch_add(1), 0) << "two owners of one descriptor";
                    EXPECT_NE(iface_cast<IStranger>(changing), nullptr);
                    registered.fetch_sub(1);
                    registry.Unregister(IStranger::GetDescriptor(), &self);
                }
                const sptr<IStranger> maybe = iface_cast<IStranger>(changing);
                EXPECT_TRUE(maybe == nullptr || maybe->AsObject() == changing);
                EXPECT_NE(iface_cast<IGreeter>(known), nullptr);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(iface_cast<IStranger>(changing), nullptr);
}

}  // namespace
}  // namespace TAVO
