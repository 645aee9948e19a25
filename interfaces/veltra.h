/* SPDX-License-Identifier: Apache-2.0 */
/* The library for C and for languages that can call C: libveltra_c.so.1. Compiles as C11 and as C++.
 *
 * Any thread may call any function, and none throws. An int32_t result is 0, a code that veltra_describe_result
 * explains, or one of the four below, which are this library's own. Texts end with a zero byte; a null text counts as
 * empty. Arguments are read during the call only. Whatever a callback is given is valid until it returns.
 *
 * A structure begins with its size, which the caller sets (VELTRA_INIT). A later version may add members at the end of
 * a structure: no more than the caller's size is read or written. From version 1 on, functions, members and values are
 * only added; those marked 1.1 are missing in version 1.0. An array of structures is passed with the size of its first
 * one. */
#ifndef VELTRA_H
#define VELTRA_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VELTRA_API __attribute__((visibility("default")))

#define VELTRA_NOTHING (-2000001)      /* there is no such thing at present: no event, no text for a code */
#define VELTRA_NO_MEMORY (-2000002)    /* out of memory; nothing was done */
#define VELTRA_BAD_ARGUMENT (-2000003) /* a null pointer, or a structure that is too small or has no size */
#define VELTRA_QUEUE_FULL (-2000004)   /* the report was refused, since too many wait */

/* An empty structure with its size: struct veltra_options options = VELTRA_INIT(struct veltra_options); */
#ifdef __cplusplus
#define VELTRA_INIT(type) (veltra_make_sized<type>())
#else
#define VELTRA_INIT(type) ((type){.size = sizeof(type)})
#endif

/* What a result means. The texts are valid for ever; an empty remedy: there is nothing to do. */
struct veltra_result_description {
    size_t size;
    const char* name;
    const char* meaning;
    const char* remedy;
};
VELTRA_API int32_t veltra_describe_result(int32_t result, struct veltra_result_description* description);

/* ---- Sessions. docs/session.md explains them; veltra_session.h is the same for C++. A process has one session. */

typedef struct veltra_session veltra_session;
struct veltra_event;
typedef void (*veltra_event_function)(void* user, const struct veltra_event* event);

/* What a game may choose about its session. */
struct veltra_options {
    size_t size;
    const char* game_name;    /* null: none */
    uint32_t refresh_ms;      /* between two readings of the device; 0: 1000 */
    uint32_t gpu_interval_ms; /* between two batches of GPU counters; 0: none */
    uint32_t event_capacity;  /* 0: 256 */
    uint32_t report_capacity; /* 0: 256 */
    /* 1.1 */
    uint32_t batch_capacity; /* most batches of GPU counters that wait; 0: 16 */
    /* Null, or gets every event on the session's thread, perhaps before veltra_session_open has returned;
     * veltra_session_dispatch then finds none. It may close the session. `handler_user` must stay valid until
     * veltra_session_close has returned. */
    veltra_event_function handler;
    void* handler_user;
};

/* Returns at once; a missing service is no error. `options` may be null. The caller closes *session. */
VELTRA_API int32_t veltra_session_open(const struct veltra_options* options, veltra_session** session);
/* Returns within 1 s, or when a `handler` that runs has returned. The session must not be in use, unless its handler
 * closes it. Null does nothing. */
VELTRA_API void veltra_session_close(veltra_session* session);

/* `source` is null for a value that the machine does not report, else the sensor or file that it comes from, or empty.
 * Valid until the process ends. */
struct veltra_value {
    int64_t value;
    const char* source;
};
/* One value of the device that is a text; `source` as above. */
struct veltra_text {
    const char* text; /* null: not reported */
    const char* source;
};

/* docs/service.md explains the values; the units are degrees Celsius, MHz, bytes, milliwatts and per cent. */
struct veltra_snapshot {
    size_t size;
    uint64_t number; /* of the reading, from 1; 0: nothing has been read yet */
    int64_t age_ns;
    struct veltra_value temp_level;
    struct veltra_value temperature;
    struct veltra_value thermal_margin;
    struct veltra_value thermal_trend;
    struct veltra_value throttling;
    struct veltra_value fan_rpm;
    struct veltra_value gpu_load_level;
    struct veltra_value gpu_load_percent;
    struct veltra_value vertex_load_level;
    struct veltra_value fragment_load_level;
    struct veltra_value texture_load_level;
    struct veltra_value bandwidth_load_level;
    struct veltra_value current_frequency;
    struct veltra_value gpu_frequency_cap;
    struct veltra_value gpu_frequency_max;
    struct veltra_value gpu_memory_used_bytes;
    struct veltra_value gpu_memory_total_bytes;
    struct veltra_value gpu_power_milliwatts;
    struct veltra_value game_gpu_load_percent;
    struct veltra_value game_gpu_memory_bytes;
    struct veltra_value cpu_load_percent;
    struct veltra_value cpu_pressure_percent;
    struct veltra_value memory_available_bytes;
    struct veltra_value memory_total_bytes;
    struct veltra_value memory_pressure_percent;
    struct veltra_value battery_percent;
    struct veltra_value battery_charging;
    struct veltra_value power_draw_milliwatts;
    struct veltra_text level_from;
    struct veltra_text platform_profile;
};
/* The latest state; never waits. */
VELTRA_API int32_t veltra_session_latest(const veltra_session* session, struct veltra_snapshot* snapshot);

enum { VELTRA_STARTING = 0, VELTRA_CONNECTED = 1, VELTRA_NOT_ANSWERING = 2, VELTRA_UNAVAILABLE = 3 };

/* How the session is doing. The counters never fall. */
struct veltra_status {
    size_t size;
    int32_t state;  /* VELTRA_STARTING to VELTRA_UNAVAILABLE */
    int32_t result; /* of the latest attempt or call */
    int32_t events_result;
    int32_t gpu_result;
    uint64_t connections;
    uint64_t reports_sent;
    uint64_t reports_failed;
    uint64_t reports_refused;
    uint64_t events_dropped;
    uint64_t batches_dropped;
};
VELTRA_API int32_t veltra_session_status(const veltra_session* session, struct veltra_status* status);

/* The parts of the state that have no fixed size, as of the latest reading. 1.1 */
struct veltra_cpu_frequency {
    const char* key;    /* of the document: cpuFrequencies, cpuFrequencyCaps or cpuFrequencyMaxima */
    const char* policy; /* of cpufreq */
    int64_t mhz;
};
/* A sensor whose reading was left out, and why. */
struct veltra_ignored_sensor {
    const char* sensor;
    const char* reason;
};
/* The parts of the document that have no fixed size, as of the latest reading. */
struct veltra_details {
    size_t size;
    const struct veltra_cpu_frequency* cpu_frequencies;
    size_t cpu_frequency_count;
    const struct veltra_ignored_sensor* ignored_sensors;
    size_t ignored_sensor_count;
    const char* document; /* the whole text, JSON, with values that this library does not know too; empty: none yet */
};
typedef void (*veltra_details_function)(void* user, const struct veltra_details* details);
/* Calls `function` once, on this thread, before it returns. Never waits. 1.1 */
VELTRA_API int32_t veltra_session_details(const veltra_session* session, veltra_details_function function, void* user);

/* One sample of the counters of a GPU; docs/service.md names the fields. */
struct veltra_gpu_sample {
    int64_t long1;
    int64_t long2;
    uint64_t ulong1;
    uint64_t ulong2;
    uint64_t ulong3;
    int32_t int1;
    uint32_t uints[10]; /* uint1 to uint10 */
};

/* The state of the device as an event has it; what is not known is as docs/service.md says. */
struct veltra_device_info {
    size_t size;
    const char* event_text; /* null from veltra_get_device_info */
    int32_t temp_level;     /* -1: unknown */
    int32_t gpu_load_level;
    int32_t vertex_load_level;
    int32_t fragment_load_level;
    int32_t texture_load_level;
    int32_t bandwidth_load_level;
    int32_t current_frequency;
    int32_t thermal_margin; /* INT32_MIN: unknown */
    int32_t thermal_trend;
    int32_t extra_value;
};

enum { VELTRA_EVENT_DEVICE = 0, VELTRA_EVENT_SERVICE = 1, VELTRA_EVENT_GPU = 2 };

/* One event; `kind` says which of the other members are set. */
struct veltra_event {
    size_t size;
    int32_t kind;
    int32_t state; /* of the service, when the event was queued */
    const struct veltra_device_info* info;
    const struct veltra_gpu_sample* samples;
    size_t sample_count;
};
/* Calls `function` on this thread for each event that waits; waits up to `wait_ms` for the first. *handled, which may be
 * null, becomes their number; VELTRA_NOTHING if there was none. */
VELTRA_API int32_t veltra_session_dispatch(veltra_session* session, veltra_event_function function, void* user,
                                           uint32_t wait_ms, size_t* handled);

/* Describes the game to the service; docs/service.md has the meaning of each value. */
struct veltra_game_info {
    size_t size;
    int32_t int32_value;
    int64_t int64_value;
    const char* texts[6]; /* text1 to text6 */
};

/* Reports that return at once: VELTRA_QUEUE_FULL if too many wait already. */
VELTRA_API int32_t veltra_session_report_game_event(veltra_session* session, const struct veltra_game_info* info);
VELTRA_API int32_t veltra_session_update_game_info(veltra_session* session, int32_t first, const char* text,
                                                   int32_t second);
/* As the operations of these names. 1.1 */
struct veltra_download_result;
VELTRA_API int32_t veltra_session_report_render_thread(veltra_session* session, const char* first, const char* second,
                                                       int32_t value);
VELTRA_API int32_t veltra_session_notify_game_event(veltra_session* session, int32_t scene_id, const char* scene_name,
                                                    const char* const* keys, const char* const* values, size_t count);
VELTRA_API int32_t veltra_session_notify_app_resource_down_load_results(veltra_session* session,
                                                                        const struct veltra_download_result* results,
                                                                        size_t count);

/* ---- The sixteen operations. veltra_server_client.h has their contracts: each may block for up to 10 s while the
 * service is started, and up to 8 s for its answer. */

/* Callbacks run on a thread of the library, with the signals blocked, and must not subscribe or unsubscribe. `user`
 * must stay valid until the subscription has ended or the answer has arrived. */
typedef int32_t (*veltra_game_event_function)(void* user, const struct veltra_device_info* info);
typedef int32_t (*veltra_gpu_function)(void* user, const struct veltra_gpu_sample* samples, size_t count);
typedef int32_t (*veltra_names_function)(void* user, const char* const* names, size_t count);

/* A resource of an application; docs/service.md names the fields. */
struct veltra_resource {
    size_t size;
    const char* text1;
    const char* text2;
    const char* text3;
    const char* text4;
    int32_t int1;
    int32_t int2;
    int32_t int3;
    int64_t long1;
};
/* `resources` points to an array of veltra_resource, each of `resources->size` bytes. */
typedef int32_t (*veltra_resources_function)(void* user, const struct veltra_resource* resources, size_t count);

VELTRA_API int32_t veltra_register_game_callback(veltra_game_event_function function, void* user, int32_t key);
VELTRA_API int32_t veltra_unregister_game_callback(int32_t key);
VELTRA_API int32_t veltra_start_get_gpu_perf_info(int32_t value, veltra_gpu_function function, void* user);
VELTRA_API int32_t veltra_stop_get_gpu_perf_info(void);
VELTRA_API int32_t veltra_query_app_resource_infos(const char* const* names, size_t count,
                                                   veltra_resources_function function, void* user);
VELTRA_API int32_t veltra_get_app_prioritys(const char* const* names, size_t count, veltra_names_function function,
                                            void* user);

VELTRA_API int32_t veltra_call_auth(const char* text);
VELTRA_API int32_t veltra_update_game_info(int32_t first, const char* text, int32_t second);
VELTRA_API int32_t veltra_report_game_event(const struct veltra_game_info* info);
VELTRA_API int32_t veltra_report_render_thread(const char* first, const char* second, int32_t value);

/* Answers go to `function`, once for each pair, before the call returns; nothing without a service. */
typedef void (*veltra_app_type_function)(void* user, const char* name, int32_t is_running);
VELTRA_API int32_t veltra_sync_app_type(const char* text, int32_t value, veltra_app_type_function function, void* user);
typedef void (*veltra_function_status_function)(void* user, const char* name, const char* status);
VELTRA_API int32_t veltra_get_system_function_status(const char* const* names, const char* const* values, size_t count,
                                                     veltra_function_status_function function, void* user);

/* The numbers of the queries, none for everything. `info` is filled with a result of 0. */
VELTRA_API int32_t veltra_get_device_info(const int32_t* query_types, size_t count, struct veltra_device_info* info);

/* A scene, with pairs of attributes: keys[i], values[i]. */
VELTRA_API int32_t veltra_notify_game_event(int32_t scene_id, const char* scene_name, const char* const* keys,
                                            const char* const* values, size_t count);

/* The outcome of one download. */
struct veltra_download_result {
    size_t size;
    const char* text1;
    const char* text2;
    int64_t value1;
    int64_t value2;
    int64_t value3;
    int64_t value4;
    int32_t count1;
    int32_t count2;
    struct veltra_resource resource; /* text1 and text4 of it are not sent */
};
VELTRA_API int32_t veltra_notify_app_resource_down_load_results(const struct veltra_download_result* results,
                                                                size_t count);

/* The state of one game, as the service keeps it. */
struct veltra_game_state {
    size_t size;
    int32_t state;         /* 2: no game is running */
    char bundle_name[257]; /* cut if it is longer */
};
VELTRA_API int32_t veltra_query_game_state(struct veltra_game_state* state);

#ifdef __cplusplus
}

template <typename T>
T veltra_make_sized()
{
    T made{};
    made.size = sizeof(T);
    return made;
}
#endif

#endif
