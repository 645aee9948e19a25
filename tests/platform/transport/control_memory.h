// SPDX-License-Identifier: Apache-2.0
// Memory that runs out for the control thread alone, in programs that are linked with this.
#ifndef VELTRA_TESTS_TRANSPORT_CONTROL_MEMORY_H
#define VELTRA_TESTS_TRANSPORT_CONTROL_MEMORY_H

#include <atomic>

namespace TransportTest {

// While true, each allocation on the control thread fails.
extern std::atomic<bool> g_noMemoryForControl;

}  // namespace TransportTest

#endif
