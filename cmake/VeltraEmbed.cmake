# SPDX-License-Identifier: Apache-2.0
# Text files of the source tree as constants of a program. Included, this file defines the function; run as a script by
# the build, it writes the header. CMake alone does it, so that nothing has to be built for the host when cross-compiling.
#
# veltra_embed(TARGET HEADER name NAMESPACE name FILES CONSTANT=path...)
# The program includes "HEADER" (best in one source only), which has for each file
#     inline constexpr std::string_view CONSTANT = ...;
# Paths are relative to the top of the source tree. The header is written again when a file changes.
function(veltra_embed target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "HEADER;NAMESPACE" "FILES")
    set(folder "${CMAKE_CURRENT_BINARY_DIR}/embedded/${target}")
    set(paths)
    foreach(file IN LISTS arg_FILES)
        string(REGEX REPLACE "^[^=]*=" "${PROJECT_SOURCE_DIR}/" path "${file}")
        if(NOT EXISTS "${path}")
            message(FATAL_ERROR "${target}: there is no file ${path} to embed")
        endif()
        list(APPEND paths "${path}")
    endforeach()
    set(script "${PROJECT_SOURCE_DIR}/cmake/VeltraEmbed.cmake")
    add_custom_command(OUTPUT "${folder}/${arg_HEADER}"
        COMMAND "${CMAKE_COMMAND}" "-DHEADER=${folder}/${arg_HEADER}" "-DNAMESPACE=${arg_NAMESPACE}"
            "-DROOT=${PROJECT_SOURCE_DIR}" "-DFILES=${arg_FILES}" -P "${script}"
        DEPENDS ${paths} "${script}" VERBATIM)
    target_sources(${target} PRIVATE "${folder}/${arg_HEADER}")
    target_include_directories(${target} PRIVATE "${folder}")
endfunction()

if(NOT CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    return()
endif()

# A raw string literal has any text that does not have its end, which no file has by chance.
set(text "// Made by the build.\n#pragma once\n#include <string_view>\n\nnamespace ${NAMESPACE} {\n")
foreach(file IN LISTS FILES)
    string(REGEX REPLACE "=.*" "" constant "${file}")
    string(REGEX REPLACE "^[^=]*=" "${ROOT}/" path "${file}")
    file(READ "${path}" content)
    string(APPEND text "inline constexpr std::string_view ${constant} = R\"veltra_embed(")
    string(APPEND text "${content}")
    string(APPEND text ")veltra_embed\";\n")
endforeach()
file(WRITE "${HEADER}" "${text}}  // namespace ${NAMESPACE}\n")
