# SPDX-License-Identifier: Apache-2.0
# A room is a folder of sources that is built as one object library. Each library, program or test lists the rooms of
# which it consists.
#
# Rooms are not static archives, since an archive may drop an object that nothing calls, such as the one that
# registers a proxy creator. The price: a room does not bring the objects of the rooms that it uses; each library,
# program or test lists all of them.

add_library(veltra_options INTERFACE)
target_compile_options(veltra_options INTERFACE -Wall -Wextra -Wshadow)
if(PROJECT_IS_TOP_LEVEL)  # another project's compiler may warn about more
    target_compile_options(veltra_options INTERFACE -Werror)
endif()
# The libraries have a few bytes of thread-local data each. With this model they are accessed without a function call.
target_compile_options(veltra_options INTERFACE -ftls-model=initial-exec)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(veltra_options INTERFACE -Wthread-safety)
endif()
if(VELTRA_SANITIZE)
    target_compile_options(veltra_options INTERFACE
        -fsanitize=${VELTRA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(veltra_options INTERFACE -fsanitize=${VELTRA_SANITIZE})
    target_compile_definitions(veltra_options INTERFACE TAVO_SANITIZED)
endif()
if(VELTRA_FUZZ)
    target_compile_options(veltra_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
target_link_libraries(veltra_options INTERFACE Threads::Threads)
# Functions of other libraries are resolved when a program starts, not one by one during a game's first call.
target_link_options(veltra_options INTERFACE -Wl,-z,now)

# Stops with an error that names `user` unless each of the names that are targets of this project exists.
function(veltra_require user)
    foreach(name IN LISTS ARGN)
        if(name MATCHES "^(veltra|tavo)" AND NOT TARGET ${name})
            message(FATAL_ERROR "${user}: there is no target ${name}")
        endif()
    endforeach()
endfunction()

# The headers that the current folder may see. What the include path cannot prevent is checked by the test `layering`.
function(veltra_include_dirs out)
    set(tavo "${PROJECT_SOURCE_DIR}/platform/include")
    set(platform "${PROJECT_SOURCE_DIR}/platform")
    set(interfaces "${PROJECT_SOURCE_DIR}/interfaces")
    set(src "${PROJECT_SOURCE_DIR}/src")
    set(service "${PROJECT_SOURCE_DIR}/service")
    set(session "${PROJECT_SOURCE_DIR}/session")
    set(capi "${PROJECT_SOURCE_DIR}/capi")
    set(tests "${PROJECT_SOURCE_DIR}/tests")
    set(top "${PROJECT_SOURCE_DIR}")  # for the headers of control, which are included by the name of their room
    file(RELATIVE_PATH here "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
    if(here MATCHES "^platform(/|$)")
        set(dirs ${platform} ${tavo})
    elseif(here MATCHES "^src(/|$)")
        set(dirs ${src} ${interfaces} ${tavo})
    elseif(here MATCHES "^service(/|$)")
        set(dirs ${service} ${src} ${interfaces} ${tavo} ${top})
    elseif(here MATCHES "^session(/|$)")
        set(dirs ${session} ${src} ${interfaces} ${tavo})
    elseif(here MATCHES "^capi(/|$)")
        set(dirs ${capi} ${interfaces} ${tavo})
    elseif(here MATCHES "^control(/|$)")
        set(dirs ${src} ${interfaces} ${tavo} ${top})
    elseif(here MATCHES "^tools(/|$)")
        set(dirs ${CMAKE_CURRENT_SOURCE_DIR} ${top}/tools/common ${src} ${interfaces} ${tavo} ${top} ${service})
    elseif(here MATCHES "^examples(/|$)")
        set(dirs ${CMAKE_CURRENT_SOURCE_DIR} ${interfaces} ${tavo})
    elseif(here MATCHES "^tests/platform(/|$)")  # both src and platform have a folder ipc
        set(dirs ${tests} ${platform} ${tavo} ${interfaces} ${src} ${service})
    else()
        set(dirs ${tests} ${src} ${interfaces} ${service} ${tavo} ${platform} ${session} ${top})
    endif()
    set(${out} ${dirs} PARENT_SCOPE)
endfunction()

# veltra_room(NAME SOURCES file... [USES room...] [LINK lib...])
# USES names the rooms whose headers and requirements this one needs; their objects are not added to it.
function(veltra_room name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;USES;LINK")
    veltra_require(${name} ${arg_USES} ${arg_LINK})
    veltra_include_dirs(dirs)
    add_library(${name} OBJECT ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES
        POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    target_include_directories(${name} PRIVATE ${dirs})
    target_link_libraries(${name} PRIVATE veltra_options PUBLIC ${arg_LINK} ${arg_USES})
endfunction()

# The number behind the SONAME of a C++ library, and in its version node: before 1.0 any minor version may break its users.
set(VELTRA_SOVERSION ${PROJECT_VERSION_MAJOR})
if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(VELTRA_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endif()

# Writes the version script of a C++ library that exports the namespace `space`; its node has the last part of that name.
function(veltra_version_script map space)
    string(REGEX REPLACE ".*::" "" node "${space}")
    string(TOUPPER "${node}_${VELTRA_SOVERSION}" node)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/exports.map.in" "${map}" @ONLY)
endfunction()

# The release build has the debug information of a library beside it, in lib<NAME>.so.VERSION.debug: debuggers find it
# there, `scripts/abi` reads the types in it, and what is installed is the same as without.
function(veltra_split_debug_info name)
    if(NOT PROJECT_IS_TOP_LEVEL OR NOT CMAKE_BUILD_TYPE STREQUAL "Release")
        return()
    endif()
    foreach(room IN LISTS ARGN)
        target_compile_options(${room} PRIVATE -g)
    endforeach()
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND "${CMAKE_OBJCOPY}" --only-keep-debug $<TARGET_FILE:${name}> $<TARGET_FILE:${name}>.debug
        COMMAND "${CMAKE_OBJCOPY}" --strip-debug --remove-section=.gnu_debuglink
            --add-gnu-debuglink=$<TARGET_FILE:${name}>.debug $<TARGET_FILE:${name}>)
endfunction()

# veltra_library(NAME ROOMS room... {EXPORTS namespace | MAP file VERSION version} [INCLUDE dir...] [LINK lib...])
# The shared library lib<NAME>.so. A C++ library EXPORTS a namespace and has the version of the project; a library with
# a version script of its own, MAP, has a version of its own too, whose first number is in its SONAME. INCLUDE and LINK
# reach those who link it.
function(veltra_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "EXPORTS;MAP;VERSION" "ROOMS;INCLUDE;LINK")
    veltra_require(${name} ${arg_ROOMS} ${arg_LINK})
    if(arg_MAP)
        set(map "${arg_MAP}")
        set(version ${arg_VERSION})
        string(REGEX MATCH "^[0-9]+" soversion "${version}")
    else()
        set(map "${CMAKE_CURRENT_BINARY_DIR}/${name}.map")
        set(version ${PROJECT_VERSION})
        set(soversion ${VELTRA_SOVERSION})
        veltra_version_script("${map}" ${arg_EXPORTS})
    endif()
    add_library(${name} SHARED)
    set_target_properties(${name} PROPERTIES
        VERSION ${version} SOVERSION ${soversion} LINKER_LANGUAGE CXX LINK_DEPENDS "${map}")
    foreach(dir IN LISTS arg_INCLUDE)
        target_include_directories(${name} INTERFACE $<BUILD_INTERFACE:${dir}>)
    endforeach()
    target_link_libraries(${name} PRIVATE ${arg_ROOMS} $<BUILD_INTERFACE:veltra_options> PUBLIC ${arg_LINK})
    # Deliberate: never unloaded. Threads of the library may still run its code when a caller closes it.
    # It calls its own exported functions directly: another library cannot replace them.
    target_link_options(${name} PRIVATE -Wl,-z,nodelete -Wl,-Bsymbolic-functions "-Wl,--version-script,${map}")
    veltra_split_debug_info(${name} ${arg_ROOMS})
    # The sanitizers' runtime is linked into the program only; another project may sanitize by flags of its own.
    if(PROJECT_IS_TOP_LEVEL AND NOT VELTRA_SANITIZE AND NOT VELTRA_FUZZ)
        target_link_options(${name} PRIVATE -Wl,-z,defs)
    endif()
endfunction()

# veltra_program(NAME SOURCES file... [USES room...] [LINK lib...]), built as bin/<NAME>
function(veltra_program name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;USES;LINK")
    veltra_require(${name} ${arg_USES} ${arg_LINK})
    veltra_include_dirs(dirs)
    add_executable(${name} ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    target_include_directories(${name} PRIVATE ${dirs})
    target_link_libraries(${name} PRIVATE veltra_options ${arg_USES} ${arg_LINK})
    if(PROJECT_IS_TOP_LEVEL)  # rooms of the libraries have some, and it names this tree
        target_link_options(${name} PRIVATE $<$<CONFIG:Release>:-Wl,--strip-debug>)
    endif()
endfunction()

# veltra_test(NAME SOURCES file... [USES room...] [LINK lib...] [LABELS label...] [SLOW regex] [TIMEOUT seconds])
# A GoogleTest program; each of its tests is a ctest entry NAME.Suite.Test that runs in a process of its own, with the
# labels NAME and LABELS. A sanitizer's build has only the programs with its label, asan or tsan; the label arm64 selects
# what the preset of that name runs. Entries that match the regex of SLOW mostly wait: their label `slow` lets
# scripts/test run many of them at a time. VELTRA_BIN_DIR is the
# folder of the built programs. TAVO_RUNTIME_DIR points into the build folder, so that no test meets a live system.
function(veltra_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "SLOW;TIMEOUT" "SOURCES;USES;LINK;LABELS")
    veltra_program(${name} SOURCES ${arg_SOURCES} USES ${arg_USES} LINK ${arg_LINK} GTest::gmock_main)
    target_compile_definitions(${name} PRIVATE VELTRA_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
    set_target_properties(${name} PROPERTIES CXX_CLANG_TIDY "")  # the test macros cause too many warnings
    string(REPLACE "thread" "tsan" preset "${VELTRA_SANITIZE}")
    string(REPLACE "address,undefined" "asan" preset "${preset}")
    if(preset AND NOT preset IN_LIST arg_LABELS)
        set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
        return()
    endif()
    set(timeout 60)
    if(arg_SLOW)
        set(timeout 180)
    endif()
    if(arg_TIMEOUT)
        set(timeout ${arg_TIMEOUT})
    endif()
    set(runtimeDir "${PROJECT_BINARY_DIR}/run/${name}")
    file(MAKE_DIRECTORY "${runtimeDir}")
    file(CHMOD "${runtimeDir}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    include(GoogleTest)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
        TEST_PREFIX "${name}." TEST_LIST ${name}_found
        PROPERTIES TIMEOUT ${timeout} ENVIRONMENT "TAVO_RUNTIME_DIR=${runtimeDir}")
    # gtest_discover_tests accepts a single label only, so the list is set on the tests that it found.
    set(labelFile "${CMAKE_CURRENT_BINARY_DIR}/${name}_labels.cmake")
    file(WRITE "${labelFile}" "\
foreach(test IN LISTS ${name}_found)
    set(labels \"${name};${arg_LABELS}\")
    if(NOT \"${arg_SLOW}\" STREQUAL \"\" AND test MATCHES \"${arg_SLOW}\")
        list(APPEND labels slow)
    endif()
    set_tests_properties(\"\${test}\" PROPERTIES LABELS \"\${labels}\")
endforeach()
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${labelFile}")
endfunction()

# veltra_fuzz(NAME SOURCES file... [USES room...] [LINK lib...]): a fuzz program and a run of ten seconds, with the
# seeds of the folder corpus/NAME beside it. Log lines of all levels are formatted and discarded.
function(veltra_fuzz name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;USES;LINK")
    veltra_program(${name} SOURCES ${arg_SOURCES} USES ${arg_USES} LINK ${arg_LINK})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    set(corpus "${CMAKE_CURRENT_BINARY_DIR}/corpus/${name}")
    file(MAKE_DIRECTORY "${corpus}")  # first, since new inputs go to the first folder
    set(seeds "${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name}")
    if(NOT EXISTS "${seeds}")
        set(seeds)
    endif()
    add_test(NAME ${name}
        COMMAND ${name} -max_total_time=10 -timeout=10 -rss_limit_mb=1024 "${corpus}" ${seeds}
        WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
    set_tests_properties(${name} PROPERTIES
        LABELS fuzz TIMEOUT 120 ENVIRONMENT "TAVO_LOG=debug,/dev/null;UBSAN_OPTIONS=print_stacktrace=1")
endfunction()
