// SPDX-License-Identifier: Apache-2.0
// The first program: asks whether it may use the service, then prints the state of the device.
#include <cstdio>

#include "veltra_server_client.h"

int main()
{
    TAVO::Veltra::VeltraClient client;
    const int32_t refusal = client.CallAuth("minimal");
    if (refusal != TAVO::Veltra::RESULT_OK) {
        std::fprintf(stderr, "the service cannot be used: %d\n", refusal);
        return 1;
    }
    const TAVO::Veltra::GameCallbackEventInfo state = client.GetDeviceInfo({});
    if (state.resultCode != TAVO::Veltra::RESULT_OK) {
        std::fprintf(stderr, "the device state cannot be read: %d\n", state.resultCode);
        return 1;
    }
    if (state.tempLevel == -1) {
        std::puts("temperature level unknown on this machine: no temperature sensor");
    } else {
        std::printf("temperature level %d, GPU load level %d\n", state.tempLevel, state.gpuLoadLevel);
    }
    return 0;
}
