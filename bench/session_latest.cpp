// SPDX-License-Identifier: Apache-2.0
// What Session::Latest costs above a plain copy of the same snapshot, without a concurrent writer.
#include "row.h"
#include "veltra_session.h"

namespace {

constexpr int COPIES = 200000;  // a round
constexpr int ROUNDS = 25;

// Keeps the compiler from leaving a copy out.
void Use(const TAVO::Veltra::DeviceSnapshot& snapshot)
{
    asm volatile("" : : "r"(&snapshot) : "memory");
}

template <typename Copy>
double NanosecondsPerCopy(Copy copy)
{
    const double start = Bench::Now();
    for (int i = 0; i < COPIES; ++i) {
        const TAVO::Veltra::DeviceSnapshot snapshot = copy();
        Use(snapshot);
    }
    return (Bench::Now() - start) / COPIES * 1e9;
}

}  // namespace

int main()
{
    const TAVO::Veltra::Session session;
    TAVO::Veltra::DeviceSnapshot plain;
    const auto latest = [&session] { return session.Latest(); };
    const auto copy = [&plain] {
        Use(plain);
        return plain;
    };
    std::vector<double> above;
    for (int round = 0; round <= ROUNDS; ++round) {
        const double difference = NanosecondsPerCopy(latest) - NanosecondsPerCopy(copy);
        if (round > 0) {  // the first one warms up
            above.push_back(difference);
        }
    }
    Bench::Print({"session_latest", "ns", 100}, above);
    return 0;
}
