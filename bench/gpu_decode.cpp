// SPDX-License-Identifier: Apache-2.0
// What the list reader costs for the longest list, beside a reader written by hand into a new vector.
#include <vector>

#include "gpu_list.h"
#include "row.h"
#include "tavo/message_parcel.h"
#include "tavo/read_vector_from_parcel.h"
#include "veltra_records.h"

namespace {

using TAVO::Veltra::GpuPerfInfo;

constexpr int ROUNDS = 15;

size_t ReadByLibrary(TAVO::Parcel& parcel)
{
    std::vector<GpuPerfInfo> list;
    parcel.SetReadPosition(0);
    return TAVO::ReadVectorFromParcel(parcel, list) ? list.size() : 0;
}

template <typename Reader>
double Milliseconds(Reader reader)
{
    const double start = Bench::Now();
    if (reader() != static_cast<size_t>(TAVO::MAX_LIST_ELEMENTS)) {
        Bench::GiveUp("the list was not read");
    }
    return (Bench::Now() - start) * 1e3;
}

}  // namespace

int main()
{
    TAVO::MessageParcel parcel;
    if (!Bench::WriteFullList(parcel)) {
        Bench::GiveUp("the list does not fit into a parcel");
    }
    Bench::MeasureAndPrint(
        {"gpu_decode", "ms", 1.11}, ROUNDS, [&] { return Milliseconds([&] { return ReadByLibrary(parcel); }); },
        [&] {
            return Milliseconds([&] { return Bench::ReadListByHand(parcel.GetData(), parcel.GetDataSize()).size(); });
        });
    return 0;
}
