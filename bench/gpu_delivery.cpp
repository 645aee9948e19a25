// SPDX-License-Identifier: Apache-2.0
// How long the longest list of GPU samples takes from the service to the game's callback, beside a bare copy between
// two processes that is read by hand. From asking the service to send it to the callback's entry.
#include <cstdio>
#include <memory>
#include <vector>

#include "gpu_list.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"
#include "tavo/message_parcel.h"
#include "tavo/read_vector_from_parcel.h"
#include "veltra_server_client.h"

namespace {

using TAVO::Veltra::GpuPerfInfo;

constexpr int ROUNDS = 11;

// The list as the socket carries it.
std::vector<uint8_t> EncodedList()
{
    TAVO::MessageParcel parcel;
    Bench::WriteFullList(parcel);
    return {parcel.GetData(), parcel.GetData() + parcel.GetDataSize()};
}

struct Arrival {
    size_t samples = 0;
    double at = 0;
};

class Callback : public TAVO::Veltra::GpuCounterCallBackBase {
public:
    explicit Callback(Arrival& arrival) : arrival_(arrival) {}

    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override
    {
        arrival_ = {infos.size(), Bench::Now()};
        return 0;
    }

private:
    Arrival& arrival_;
};

}  // namespace

int main()
{
    const std::vector<uint8_t> encoded = EncodedList();
    Bench::RawPeer raw(1, {1, encoded});
    Bench::Platform platform(1, 0, Bench::Service::BENCH);
    TAVO::Veltra::VeltraClient client;
    Arrival arrival;
    bool isBroken = client.StartGetGpuPerfInfo(0, std::make_unique<Callback>(arrival)) != 0;
    const auto milliseconds = [&](double start, const Arrival& end) {
        isBroken = end.samples != static_cast<size_t>(TAVO::MAX_LIST_ELEMENTS) || isBroken;
        return (end.at - start) * 1e3;
    };
    Bench::MeasureAndPrint(
        {"gpu_delivery", "ms", 1.5}, ROUNDS,
        [&] {
            arrival = {};
            const double start = Bench::Now();
            isBroken = client.UpdateGameInfo(0, "", 0) != 0 || isBroken;
            return milliseconds(start, arrival);
        },
        [&] {
            const double start = Bench::Now();
            raw.Send();
            const std::vector<GpuPerfInfo> list = Bench::ReadListByHand(raw.Receive(), encoded.size());
            return milliseconds(start, {list.size(), Bench::Now()});
        });
    if (isBroken) {
        std::fprintf(stderr, "bench: a list was not delivered\n");
    }
    return isBroken ? 1 : 0;
}
