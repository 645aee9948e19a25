/* SPDX-License-Identifier: Apache-2.0 */
/* Opens libveltra_c.so.1 at run time, for a game that has to start where the library is not installed. Nothing to link
 * but the C library (dlopen).
 *
 *     struct veltra_library veltra;
 *     if (veltra_load(&veltra, NULL) == 0) {
 *         result = veltra.call_auth("my-game");
 *     }
 */
#ifndef VELTRA_LOADER_H
#define VELTRA_LOADER_H

#include <dlfcn.h>
#include <string.h>

#include "veltra.h"

/* Those of version 1.0 come first; the members of later ones are null with an older library. */
#define VELTRA_FUNCTIONS(USE)                  \
    USE(describe_result)                       \
    USE(session_open)                          \
    USE(session_close)                         \
    USE(session_latest)                        \
    USE(session_status)                        \
    USE(session_dispatch)                      \
    USE(session_report_game_event)             \
    USE(session_update_game_info)              \
    USE(register_game_callback)                \
    USE(unregister_game_callback)              \
    USE(start_get_gpu_perf_info)               \
    USE(stop_get_gpu_perf_info)                \
    USE(query_app_resource_infos)              \
    USE(get_app_prioritys)                     \
    USE(call_auth)                             \
    USE(update_game_info)                      \
    USE(report_game_event)                     \
    USE(report_render_thread)                  \
    USE(sync_app_type)                         \
    USE(get_system_function_status)            \
    USE(get_device_info)                       \
    USE(notify_game_event)                     \
    USE(notify_app_resource_down_load_results) \
    USE(query_game_state)                      \
    /* 1.1 */                                  \
    USE(session_details)                       \
    USE(session_report_render_thread)          \
    USE(session_notify_game_event)             \
    USE(session_notify_app_resource_down_load_results)

/* The functions of the library, each under its name without the prefix. */
struct veltra_library {
    void* handle; /* null: not available */
#define VELTRA_MEMBER(name) __typeof__(veltra_##name)* name;
    VELTRA_FUNCTIONS(VELTRA_MEMBER)
#undef VELTRA_MEMBER
};

/* Fills `library`, whose members are all null if the result is VELTRA_NOTHING: the library is not available. `path` is
 * its file; null: where the system finds it. It is never unloaded. Blocks for the time that loading takes. */
static inline int32_t veltra_load(struct veltra_library* library, const char* path)
{
    memset(library, 0, sizeof(*library));
    library->handle = dlopen(path != NULL ? path : "libveltra_c.so.1", RTLD_NOW | RTLD_LOCAL);
    if (library->handle == NULL) {
        return VELTRA_NOTHING;
    }
    /* Copied as bytes: ISO C converts no object pointer to a function pointer. */
#define VELTRA_FIND(name)                                                  \
    {                                                                      \
        void* const found = dlsym(library->handle, "veltra_" #name);       \
        memcpy((void*)&library->name, (const void*)&found, sizeof(found)); \
    }
    VELTRA_FUNCTIONS(VELTRA_FIND)
#undef VELTRA_FIND
    return 0;
}

#endif
