// SPDX-License-Identifier: Apache-2.0
// Between the structures of veltra.h and the records of the C++ libraries.
#ifndef VELTRA_CAPI_CONVERT_H
#define VELTRA_CAPI_CONVERT_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "game_scene_bundle.h"
#include "veltra.h"
#include "veltra_records.h"

namespace TAVO::Veltra::C {

inline std::string Text(const char* text)
{
    return text != nullptr ? text : "";
}

// The caller's structure as one of this version: missing members are zero.
template <typename T>
T Read(const T* given)
{
    T whole{};
    std::memcpy(&whole, given, std::min(given->size, sizeof(T)));
    whole.size = sizeof(T);
    return whole;
}

// Fills as much of the caller's structure as it has; its size stays.
template <typename T>
void Write(const T& whole, T* given)
{
    const size_t size = std::min(given->size, sizeof(T));
    std::memcpy(reinterpret_cast<char*>(given) + sizeof(size_t), reinterpret_cast<const char*>(&whole) + sizeof(size_t),
                size - sizeof(size_t));
}

// A structure whose size was not set, or is none, is refused.
template <typename T>
bool IsGiven(const T* given)
{
    return given != nullptr && given->size > sizeof(size_t);
}

inline bool IsArray(const void* array, size_t count)
{
    return array != nullptr || count == 0;
}

inline std::vector<std::string> Texts(const char* const* texts, size_t count)
{
    std::vector<std::string> list;
    for (size_t i = 0; i < count; ++i) {
        list.push_back(Text(texts[i]));
    }
    return list;
}

// The result of `body`, which may run out of memory.
template <typename Body>
int32_t Guarded(Body body) noexcept
try {
    return body();
} catch (const std::bad_alloc&) {
    return VELTRA_NO_MEMORY;
}

// The texts of the following point into their argument.
veltra_device_info DeviceInfo(const GameCallbackEventInfo& info);
std::vector<veltra_gpu_sample> Samples(const std::vector<GpuPerfInfo>& infos);
std::vector<veltra_resource> Resources(const AppResourceInfos& infos);

GameInfo GameInfoOf(const veltra_game_info& given);
std::map<std::string, std::string> Pairs(const char* const* keys, const char* const* values, size_t count);
GameSceneBundle SceneOf(int32_t id, const char* name, std::map<std::string, std::string> attributes);
// An array of the caller's structures, which may be of another size than this version's.
std::vector<AppResourceDownLoadResult> Downloads(const veltra_download_result* given, size_t count);

}  // namespace TAVO::Veltra::C

#endif
