# SPDX-License-Identifier: Apache-2.0
"""The sixteen operations with arguments and results, for every way to call them: C++ through the tool, C through the
Python package. The service needs the example catalogue, device events and GPU counters."""

# Operation, arguments in its order, name of the result (None: it has none), whether something comes to its callback.
# A subscription of a row is ended before the next one.
OPERATIONS = [
    ("CallAuth", ["hello"], "RESULT_OK", False),
    ("UpdateGameInfo", [1, "com.example.racer"], "RESULT_OK", False),
    ("ReportGameEvent", [1, "com.example.racer"], None, False),
    ("ReportRenderThread", ["a", "b", 1], "RESULT_OK", False),
    ("ReportRenderThread", ["a", "b", 0], "SERVICE_BAD_REQUEST", False),
    ("NotifyGameEvent", [1, "menu", {"a": "1", "b": "2"}], "RESULT_OK", False),
    ("NotifyAppResourceDownLoadResults", [[{"text1": "a", "value1": 5}, {}]], "RESULT_OK", False),
    ("QueryGameState", [], "RESULT_OK", False),
    ("SyncAppType", ["com.example.racer"], None, False),
    ("GetSystemFunctionStatus", [{}], None, False),
    ("GetDeviceInfo", [[1, 2]], "RESULT_OK", False),
    ("GetAppPrioritys", [[]], "RESULT_OK", True),
    ("QueryAppResourceInfos", [["com.example.racer"]], "RESULT_OK", True),
    ("QueryAppResourceInfos", [[]], "RESULT_NO_BUNDLE_NAMES", False),
    ("RegisterGameCallback", [1], "RESULT_OK", True),
    ("StartGetGpuPerfInfo", [50], "RESULT_OK", True),
    ("StopGetGpuPerfInfo", [], "RESULT_GPU_REFUSED", False),
    ("UnRegisterGameCallback", [1], "RESULT_NOT_REGISTERED", False),
]
