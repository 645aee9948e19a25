# SPDX-License-Identifier: Apache-2.0
"""The first program in Python: asks the service whether it may use it, then prints the state of the device."""
import sys

import veltra

try:
    veltra.call_auth("minimal")
    state = veltra.get_device_info()
except veltra.VeltraError as error:
    sys.exit(str(error))
if state["temp_level"] == -1:
    print("temperature level unknown on this machine: no temperature sensor")
else:
    print(f"temperature level {state['temp_level']}, GPU load level {state['gpu_load_level']}")
