/* SPDX-License-Identifier: Apache-2.0 */
/* The first program in C: asks the service whether it may use it, then prints the state of the device. */
#include <stdio.h>

#include "veltra.h"

static int fail(const char* what, int32_t result)
{
    struct veltra_result_description description = VELTRA_INIT(struct veltra_result_description);
    if (veltra_describe_result(result, &description) == 0) {
        fprintf(stderr, "%s: %d: %s; %s\n", what, (int)result, description.meaning, description.remedy);
    } else {
        fprintf(stderr, "%s: %d\n", what, (int)result);
    }
    return 1;
}

int main(void)
{
    const int32_t refusal = veltra_call_auth("minimal");
    if (refusal != 0) {
        return fail("the service cannot be used", refusal);
    }
    struct veltra_device_info state = VELTRA_INIT(struct veltra_device_info);
    const int32_t result = veltra_get_device_info(NULL, 0, &state);
    if (result != 0) {
        return fail("the device state cannot be read", result);
    }
    if (state.temp_level == -1) {
        puts("temperature level unknown on this machine: no temperature sensor");
    } else {
        printf("temperature level %d, GPU load level %d\n", (int)state.temp_level, (int)state.gpu_load_level);
    }
    return 0;
}
