# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` puts where. Installed files know each other by relative paths only, so that one build goes to
# any prefix and an installation may be moved.

include(GNUInstallDirs)

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

# veltra_install_program(NAME): into bin; finds the libraries from there.
function(veltra_install_program name)
    veltra_way(lib BINDIR LIBDIR)
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "\$ORIGIN/${lib}")
    install(TARGETS ${name} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endfunction()
