// SPDX-License-Identifier: Apache-2.0
// Operations whose encoding comes from their signature: what travels, and what short or hostile messages lead to.
#include "tavo/typed_request.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "support/fake_remote_object.h"
#include "tavo/tavo.h"

namespace TAVO {
namespace {

using Veltra::FakeRemoteObject;

struct Reading {
    double value = 0;
    std::vector<uint8_t> raw;

    bool Marshalling(Parcel& parcel) const
    {
        return parcel.WriteDouble(value) && parcel.WriteBuffer(raw.data(), raw.size());
    }
    bool ReadFields(Parcel& parcel) { return parcel.ReadDouble(value) && parcel.ReadBuffer(raw); }
    bool operator==(const Reading& other) const { return value == other.value && raw == other.raw; }
};

class ILab : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"test.ILab")

    enum Code : uint32_t { MIX = 1, NOTE = 2 };
    virtual int32_t Mix(bool flag, uint32_t small, int64_t large, uint64_t huge, float number,
                        const std::vector<Reading>& readings, const sptr<ILab>& lab, std::u16string& text,
                        Reading& last, sptr<IRemoteObject>& object) = 0;
    virtual int32_t Note(int32_t number, const std::vector<std::string>& texts, std::string& answer) = 0;
};

class LabProxy : public IRemoteProxy<ILab> {
public:
    using IRemoteProxy::IRemoteProxy;

    int32_t Mix(bool flag, uint32_t small, int64_t large, uint64_t huge, float number,
                const std::vector<Reading>& readings, const sptr<ILab>& lab, std::u16string& text, Reading& last,
                sptr<IRemoteObject>& object) override
    {
        return CallRemote(Remote(), MIX, &ILab::Mix, flag, small, large, huge, number, readings, lab, text, last,
                          object);
    }
    int32_t Note(int32_t number, const std::vector<std::string>& texts, std::string& answer) override
    {
        return CallRemote(Remote(), NOTE, &ILab::Note, number, texts, answer);
    }
};

class Lab : public IRemoteStub<ILab> {
public:
    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption&) override
    {
        return code == MIX ? ServeRequest(*this, &ILab::Mix, data, reply)
                           : ServeRequest(*this, &ILab::Note, data, reply);
    }
    int32_t Mix(bool flag, uint32_t small, int64_t large, uint64_t huge, float number,
                const std::vector<Reading>& readings, const sptr<ILab>& lab, std::u16string& text, Reading& last,
                sptr<IRemoteObject>& object) override
    {
        EXPECT_EQ(std::tuple(flag, small, large, huge, number), std::tuple(true, 1U, int64_t{-2}, ~uint64_t{0}, 2.5F));
        text = u"mixed";
        last = readings.back();
        object = lab->AsObject();
        return -7;
    }
    int32_t Note(int32_t number, const std::vector<std::string>& texts, std::string& answer) override
    {
        ++notes;
        answer = texts.empty() ? "none" : texts.back();
        return number;
    }

    int notes = 0;
};

TEST(TypedRequest, CarriesEachTypeThereAndBack)
{
    const auto lab = MakeRef<Lab>();
    std::u16string text;
    Reading last;
    sptr<IRemoteObject> object;
    const Reading readings[] = {{1, {}}, {-0.5, {0, 255, 3}}};
    const int32_t result =
        LabProxy(lab->AsObject())
            .Mix(true, 1, -2, ~uint64_t{0}, 2.5F, {readings[0], readings[1]}, lab, text, last, object);
    EXPECT_EQ(result, -7);
    EXPECT_EQ(text, u"mixed");
    EXPECT_EQ(last, readings[1]);
    EXPECT_EQ(object, lab->AsObject());
}

std::string Bytes(const Parcel& parcel)
{
    return {reinterpret_cast<const char*>(parcel.GetData()), parcel.GetDataSize()};
}

int Served(Lab& lab, const std::string& request)
{
    MessageParcel data;
    EXPECT_TRUE(data.SetData(request.data(), request.size()));
    MessageParcel reply;
    return ServeRequest(lab, &ILab::Note, data, reply);
}

TEST(TypedRequest, RequestsThatAreNotWholeCallNothing)
{
    MessageParcel good;
    ASSERT_TRUE(good.WriteInterfaceToken(ILab::GetDescriptor()) && good.WriteInt32(3) && good.WriteInt32(1) &&
                good.WriteString("text"));
    const std::string whole = Bytes(good);
    const size_t countAt = whole.size() - 16;
    const auto lab = MakeRef<Lab>();
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(Served(*lab, whole.substr(0, length)), IPC_BAD_MESSAGE) << length << " bytes";
    }
    for (const int32_t count : {-1, 2, MAX_LIST_ELEMENTS + 1, std::numeric_limits<int32_t>::max()}) {
        std::string wrong = whole;
        wrong.replace(countAt, sizeof(count), reinterpret_cast<const char*>(&count), sizeof(count));
        EXPECT_EQ(Served(*lab, wrong), IPC_BAD_MESSAGE) << "a list of " << count;
    }
    std::string foreign = whole;
    ++foreign[4];  // the first letter of the token
    EXPECT_EQ(Served(*lab, foreign), IPC_BAD_MESSAGE);
    EXPECT_EQ(lab->notes, 0);
    EXPECT_EQ(Served(*lab, whole + "more"), IPC_OK);
    EXPECT_EQ(lab->notes, 1);
}

TEST(TypedRequest, FailuresHaveAStatusAndChangeNoResult)
{
    const struct {
        const char* name;
        sptr<IRemoteObject> remote;
        int32_t status;
    } rows[] = {
        {"no object", nullptr, IPC_DEAD_OBJECT},
        {"status of the handler", FakeRemoteObject::FailingWith(5), 5},
        {"empty reply", MakeRef<FakeRemoteObject>(), IPC_BAD_MESSAGE},
        {"reply without a result",
         MakeRef<FakeRemoteObject>([](uint32_t, MessageParcel&, MessageParcel& reply) { return !reply.WriteInt32(0); }),
         IPC_BAD_MESSAGE},
    };
    for (const auto& row : rows) {
        std::string answer = "kept";
        EXPECT_EQ(LabProxy(row.remote).Note(1, {}, answer), row.status) << row.name;
        EXPECT_EQ(answer, "kept") << row.name;
    }
    std::string answer;
    EXPECT_EQ(LabProxy(MakeRef<Lab>()).Note(1, {std::string(Parcel::MAX_DATA_BYTES, 'x')}, answer), IPC_TOO_LARGE);
}

}  // namespace
}  // namespace TAVO
