// SPDX-License-Identifier: Apache-2.0
// A bare connection from the service of service.cpp to the benchmark, which sees the end of the process by it.
#ifndef VELTRA_BENCH_WITNESS_H
#define VELTRA_BENCH_WITNESS_H

namespace Bench {

// A listening socket, which services find by the environment that they are started with.
int ListenForWitnesses();

// In the service: connects if there is a listener, for the life of the process.
void ConnectWitness();

}  // namespace Bench

#endif
