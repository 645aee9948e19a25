# SPDX-License-Identifier: Apache-2.0
# Which files `cmake --install` installs, and where. Installed files refer to each other by relative paths only, so that
# one build can be installed under any prefix and an installation may be moved. Each file belongs to a component, of which
# the packages are made: a library to one of the name of its target, what programs are built with to `dev`, and other
# files to the component that a folder sets as CMAKE_INSTALL_DEFAULT_COMPONENT_NAME.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)  # for the version files

# veltra_way(OUT FROM TO [PATH]): the relative path from the installed folder FROM to TO, or to PATH in TO; both are
# names of GNUInstallDirs, such as BINDIR, or absolute.
function(veltra_way out from to)
    foreach(end from to)
        if(NOT IS_ABSOLUTE "${${end}}")
            set(${end} "${CMAKE_INSTALL_FULL_${${end}}}")
        endif()
    endforeach()
    cmake_path(APPEND to ${ARGN})
    cmake_path(RELATIVE_PATH to BASE_DIRECTORY "${from}" OUTPUT_VARIABLE way)
    set(${out} "${way}" PARENT_SCOPE)
endfunction()

# Programs and libraries are built with the run path that they have when installed; the build folder has the same layout.
# CMake would otherwise pad the run path with empty entries, to replace it later. Each of them means the current folder,
# and makes every start of a program look up a hundred files that do not exist.
# Below /usr the system finds the libraries by itself, and an installed file has no run path.

# veltra_run_path(TARGET PATH): the run path in an installation.
function(veltra_run_path target path)
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set_target_properties(${target} PROPERTIES INSTALL_RPATH "\$ORIGIN${path}" BUILD_WITH_INSTALL_RPATH ON)
    endif()
endfunction()

# veltra_install_program(NAME): into bin; finds the libraries from there, if it links any of them.
function(veltra_install_program name)
    get_target_property(libraries ${name} LINK_LIBRARIES)
    if("tavo" IN_LIST libraries OR "veltra_client" IN_LIST libraries OR "veltra_session" IN_LIST libraries)
        veltra_way(lib BINDIR LIBDIR)
        veltra_run_path(${name} "/${lib}")
    endif()
    if(VELTRA_INSTALL)
        install(TARGETS ${name} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
    endif()
endfunction()

# veltra_install_library(PACKAGE TARGET NAME INCLUDE): the library TARGET, to be found as the CMake target PACKAGE::NAME.
# INCLUDE is the installed folder that its users search for headers.
function(veltra_install_library package target name include)
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
    veltra_run_path(${target} "")
    target_compile_features(${target} INTERFACE cxx_std_17)
    add_library(${package}::${name} ALIAS ${target})  # the same name for a project that uses the source tree
    if(VELTRA_INSTALL)
        install(TARGETS ${target} EXPORT ${package}
            LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${target} NAMELINK_COMPONENT dev
            INCLUDES DESTINATION "${include}")
    endif()
endfunction()

# veltra_install_pkg_config(NAME INCLUDE): the file by which pkg-config finds a library, from cmake/NAME.pc.in.
function(veltra_install_pkg_config name include)
    if(NOT VELTRA_INSTALL)
        return()
    endif()
    cmake_path(ABSOLUTE_PATH include BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
    veltra_way(wayToInclude "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${include}")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/package/${name}.pc" @ONLY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/package/${name}.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)
endfunction()

# veltra_install_package(PACKAGE TARGET NAME INCLUDE): the same for the first library of a package, with the CMake
# package PACKAGE, which has all libraries that are installed into it.
function(veltra_install_package package target name include)
    veltra_install_library(${package} ${target} ${name} "${include}")
    veltra_install_pkg_config(${package} "${include}")
    if(NOT VELTRA_INSTALL)
        return()
    endif()
    set(folder "${CMAKE_INSTALL_LIBDIR}/cmake/${package}")
    set(made "${CMAKE_CURRENT_BINARY_DIR}/package")
    install(EXPORT ${package} FILE ${package}-targets.cmake NAMESPACE ${package}:: DESTINATION "${folder}"
        COMPONENT dev)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/${package}-config.cmake.in" "${made}/${package}-config.cmake" @ONLY)
    # Before 1.0 any minor version may break its users.
    write_basic_package_version_file("${made}/${package}-config-version.cmake" COMPATIBILITY SameMinorVersion)
    install(FILES "${made}/${package}-config.cmake" "${made}/${package}-config-version.cmake"
        DESTINATION "${folder}" COMPONENT dev)
endfunction()

# veltra_manual(NAME): the page NAME.1, from NAME.1.scd in the current folder, made and installed with the target NAME.
function(veltra_manual name)
    if(NOT PROJECT_IS_TOP_LEVEL)
        return()
    endif()
    find_program(VELTRA_SCDOC scdoc)
    if(NOT VELTRA_SCDOC)
        message(FATAL_ERROR "scdoc is missing, which makes the manual page ${name}.1: run scripts/setup, or install scdoc")
    endif()
    set(page "${CMAKE_CURRENT_BINARY_DIR}/${name}.1")
    set(make "${VELTRA_SCDOC}" < "${CMAKE_CURRENT_SOURCE_DIR}/${name}.1.scd")
    if(VELTRA_PACKAGES)  # a package has its pages compressed
        string(APPEND page ".gz")
        list(APPEND make | gzip -9n)
    endif()
    add_custom_command(OUTPUT "${page}" COMMAND ${make} > "${page}" DEPENDS ${name}.1.scd)
    add_custom_target(${name}_manual DEPENDS "${page}")
    add_dependencies(${name} ${name}_manual)
    if(VELTRA_INSTALL)
        install(FILES "${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
    endif()
endfunction()
