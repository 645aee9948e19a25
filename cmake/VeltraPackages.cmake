# SPDX-License-Identifier: Apache-2.0
# The Debian packages, which CPack makes in the preset `package`: what belongs to the system beside the installed files
# (unit, changelogs, copyright), and one package for each component of the installation. scripts/package runs it.
#
# A package of a library has the number of its SONAME in its name, so that two versions can be installed side by side, and
# provides the name without that number.

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_SOURCE_DIR}/build/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_DEBIAN_PACKAGE_SOURCE veltra)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Libraries of one version only; programs that others build need that version or a later one with the same SONAME.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(VELTRA_MAINTAINER "" CACHE STRING "Who builds the packages: NAME <ADDRESS>")
set(VELTRA_RELEASE_TIME 0 CACHE STRING "Time of the release in the changelogs, in seconds since 1970")
if(VELTRA_MAINTAINER STREQUAL "")
    message(FATAL_ERROR "packages need VELTRA_MAINTAINER, NAME <ADDRESS>: use scripts/package, which sets it")
endif()
set(CPACK_PACKAGE_CONTACT "${VELTRA_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has one of its own

# A compressed copy of a text, the same each time.
function(veltra_compress from to)
    execute_process(COMMAND gzip -9nc "${from}" OUTPUT_FILE "${to}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(made "${PROJECT_BINARY_DIR}/packaging")
file(MAKE_DIRECTORY "${made}")
execute_process(
    COMMAND python3 "${PROJECT_SOURCE_DIR}/packaging/debian_changelog.py" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
        "${PROJECT_VERSION}" "${VELTRA_MAINTAINER}" "${VELTRA_RELEASE_TIME}"
    OUTPUT_FILE "${made}/changelog" COMMAND_ERROR_IS_FATAL ANY)
veltra_compress("${made}/changelog" "${made}/changelog.gz")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/CHANGELOG.md")

# veltra_package(COMPONENT NAME SECTION SUMMARY [ALL] [NEEDS component...] [DEPENDS text] [RECOMMENDS text]
#                [PROVIDES name] [SCRIPTS file...] [ABOUT line...])
# The package NAME of what is installed as COMPONENT. ALL: it is the same for every processor.
function(veltra_package component name section summary)
    cmake_parse_arguments(PARSE_ARGV 4 arg "ALL" "DEPENDS;RECOMMENDS;PROVIDES" "NEEDS;SCRIPTS;ABOUT")
    string(TOUPPER ${component} key)
    list(JOIN arg_ABOUT "\n" about)
    if(section STREQUAL libs)
        # The trigger renews the loader's cache once for all packages. Deliberate: postinst and postrm do not exist. CPack
        # adds scripts of its own, which renew it in each package, unless these names are listed.
        list(APPEND arg_SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/libs/triggers" /nonexistent/postinst /nonexistent/postrm)
    endif()
    set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${about}" PARENT_SCOPE)
    set(CPACK_COMPONENT_${key}_DEPENDS ${arg_NEEDS} PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${arg_DEPENDS}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_PACKAGE_RECOMMENDS "${arg_RECOMMENDS}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${key}_PACKAGE_CONTROL_EXTRA "${arg_SCRIPTS}" PARENT_SCOPE)
    if(arg_PROVIDES)
        set(CPACK_DEBIAN_${key}_PACKAGE_PROVIDES "${arg_PROVIDES} (= ${CPACK_DEBIAN_PACKAGE_VERSION})" PARENT_SCOPE)
    endif()
    if(arg_ALL)
        set(CPACK_DEBIAN_${key}_PACKAGE_ARCHITECTURE all PARENT_SCOPE)
    else()
        set(CPACK_DEBIAN_${key}_PACKAGE_SHLIBDEPS ON PARENT_SCOPE)
    endif()
    install(FILES "${made}/changelog.gz" "${PROJECT_SOURCE_DIR}/packaging/copyright"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}" COMPONENT ${component})
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()

veltra_package(tavo libtavo${VELTRA_SOVERSION} libs "host platform for services of one user: library"
    PROVIDES libtavo
    ABOUT "Remote objects between the processes of one user, calls, one-way requests," "death notices, and access to the manager that starts services on demand.")
veltra_package(veltra_client libveltra-client${VELTRA_SOVERSION} libs "game support: client library"
    NEEDS tavo PROVIDES libveltra-client RECOMMENDS veltra-platform
    ABOUT "A game reports what it does and learns how the device is doing: temperature" "level, load, GPU counters.")
veltra_package(veltra_session libveltra-session${VELTRA_SOVERSION} libs "game support: sessions"
    NEEDS veltra_client tavo PROVIDES libveltra-session
    ABOUT "The latest state of the device without a lock, events on the own thread of the" "game, reports that never block, and a governor that turns heat into quality" "steps.")
veltra_package(veltra_c libveltra-c1 libs "game support: library for C"
    NEEDS veltra_session veltra_client tavo PROVIDES libveltra-c
    ABOUT "Sessions and operations for C and for languages that can call C. Its" "interface is only added to.")
veltra_package(dev libveltra-dev libdevel "game support: headers and libraries to link with"
    NEEDS tavo veltra_client veltra_session veltra_c DEPENDS "libjsoncpp-dev, pkgconf | pkg-config"
    ABOUT "What it takes to build a game in C++ or C: headers, and files for CMake and" "pkg-config. A game that is built needs none of it.")
veltra_package(platform veltra-platform misc "game support: manager and service"
    NEEDS tavo
    ABOUT "The manager, which starts the service on demand, the service, which reads the" "sensors of the machine, and a systemd unit for the sessions of users.")
veltra_package(tools veltra-tools utils "game support: command-line tool"
    NEEDS tavo veltra_client platform
    ABOUT "The tool veltra finds out what does not work, shows what the device reports and" "what games call, records and replays it, and simulates heat.")
veltra_package(serve veltra-serve utils "game support: live page and metrics"
    NEEDS tavo veltra_client platform
    ABOUT "A page with the curves of the device, games, calls and the simulator, and" "metrics for Prometheus.")
veltra_package(python python3-veltra python "game support: package for Python"
    ALL NEEDS veltra_c DEPENDS "python3, python3-cffi" RECOMMENDS veltra-platform
    SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/python3-veltra/postinst" "${PROJECT_SOURCE_DIR}/packaging/python3-veltra/prerm"
    ABOUT "Sessions and operations for Python, and simulated devices for the tests of a" "game.")
veltra_package(doc veltra-doc doc "game support: documentation"
    ALL
    ABOUT "Guides for games and services, and the reference of the headers.")

# The unit is started in each session of a user; a user or an administrator may mask it. No script is needed for that.
set(unitDir "lib/systemd/user")
install(FILES "${PROJECT_SOURCE_DIR}/packaging/tavo-manager.service" DESTINATION "${unitDir}" COMPONENT platform)
file(MAKE_DIRECTORY "${made}/default.target.wants")
file(CREATE_LINK ../tavo-manager.service "${made}/default.target.wants/tavo-manager.service" SYMBOLIC)
install(DIRECTORY "${made}/default.target.wants" DESTINATION "${unitDir}" COMPONENT platform)
# Folders for the files of the administrator; they are gone with the package if they are empty.
install(DIRECTORY DESTINATION "${CMAKE_INSTALL_FULL_SYSCONFDIR}/tavo/abilities" COMPONENT platform)
install(DIRECTORY "${PROJECT_BINARY_DIR}/reference/html" DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT doc)

add_dependencies(veltra_installed reference)

# What no package has would be missing on the user's machine.
function(veltra_check_components)
    get_cmake_property(components COMPONENTS)
    list(REMOVE_ITEM components ${CPACK_COMPONENTS_ALL})
    if(components)
        message(FATAL_ERROR "no package has what is installed as: ${components}")
    endif()
endfunction()
veltra_check_components()
include(CPack)
