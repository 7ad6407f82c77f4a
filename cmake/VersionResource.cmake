# SPDX-License-Identifier: MIT
# tonwerk_add_version_resource(TARGET DESCRIPTION): what Windows shows of a file under Properties, Details. Does nothing
# elsewhere.
function(tonwerk_add_version_resource target description)
    if(NOT WIN32)
        return()
    endif()
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
        set(fileType VFT_APP)
        set(fileName "${target}.exe")
    else()
        set(fileType VFT_DLL)
        set(fileName "${target}.dll")
    endif()
    set(script "${PROJECT_BINARY_DIR}/${target}.rc")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/version.rc.in" "${script}" @ONLY)
    # A library of its own, because resource compilers take neither the target's definitions nor the common options.
    add_library(${target}_version OBJECT "${script}")
    set_target_properties(${target}_version PROPERTIES COMPILE_OPTIONS "")
    target_sources(${target} PRIVATE "$<TARGET_OBJECTS:${target}_version>")
endfunction()
