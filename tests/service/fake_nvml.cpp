// SPDX-License-Identifier: Apache-2.0
// A GPU driver's library with the entries that the service looks for, but the encoder's. Of three GPUs the first reports
// all, the second cannot be opened, and the third knows its temperature only.
extern "C" {

#define ENTRY [[gnu::visibility("default")]] int

ENTRY nvmlInit_v2()
{
    return 0;
}
ENTRY nvmlDeviceGetCount_v2(unsigned int* count)
{
    *count = 3;
    return 0;
}
ENTRY nvmlDeviceGetHandleByIndex_v2(unsigned int index, const char** device)
{
    static const char devices[] = {'0', '1', '2'};
    *device = &devices[index];
    return index == 1 ? 15 : 0;
}
ENTRY nvmlDeviceGetUtilizationRates(const char* device, unsigned int percents[2])
{
    percents[0] = 97;
    percents[1] = 41;
    return *device == '0' ? 0 : 3;
}
ENTRY nvmlDeviceGetMemoryInfo(const char* device, unsigned long long bytes[3])
{
    bytes[0] = 1ULL << 34;
    bytes[2] = 1ULL << 33;
    return *device == '0' ? 0 : 3;
}
ENTRY nvmlDeviceGetTotalEnergyConsumption(const char* device, unsigned long long* millijoules)
{
    *millijoules = 5;
    return *device == '0' ? 0 : 3;
}
ENTRY nvmlDeviceGetClockInfo(const char* device, unsigned int clock, unsigned int* mhz)
{
    *mhz = 1000 + clock;
    return *device == '0' ? 0 : 3;
}
ENTRY nvmlDeviceGetTemperature(const char* device, unsigned int sensor, unsigned int* degrees)
{
    *degrees = 60 + static_cast<unsigned int>(*device - '0');
    return sensor == 0 ? 0 : 2;
}
ENTRY nvmlDeviceGetPowerUsage(const char* device, unsigned int* milliwatts)
{
    *milliwatts = 212000;
    return *device == '0' ? 0 : 3;
}
ENTRY nvmlDeviceGetFanSpeed(const char* device, unsigned int* percent)
{
    *percent = 40;
    return *device == '0' ? 0 : 3;
}
}
