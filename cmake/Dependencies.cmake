# SPDX-License-Identifier: MIT
# What the sources are made of: .deps, which tools/fetch-deps.sh fills, or vcpkg. Nothing is downloaded here.
set(depsFolder "${PROJECT_SOURCE_DIR}/.deps")

# Headers, the same for every platform. System headers: our warnings are not for them.
add_library(tonwerk_deps INTERFACE)
if(EXISTS "${depsFolder}/include/onnxruntime" AND EXISTS "${depsFolder}/src/pffft")
    if(TONWERK_PROGRAM)
        include(AudioLibraries)
    endif()
    target_include_directories(tonwerk_deps SYSTEM INTERFACE "${depsFolder}/include")
    set(runtimeHeaders "${depsFolder}/include/onnxruntime")
    if(WIN32)
        set(runtimeFolder "${depsFolder}/runtime/windows")
    else()
        set(runtimeFolder "${depsFolder}/runtime/linux")
    endif()
    add_library(tonwerk_pffft STATIC "${depsFolder}/src/pffft/pffft.c")
    target_include_directories(tonwerk_pffft SYSTEM PUBLIC "${depsFolder}/src/pffft")
    target_compile_options(tonwerk_pffft PRIVATE $<IF:$<BOOL:${MSVC}>,/w,-w>)
    set(resamplerFolder "${depsFolder}/src/r8brain")
elseif(DEFINED VCPKG_TARGET_TRIPLET)
    include(VcpkgDependencies)
else()
    message(FATAL_ERROR "The dependencies are missing: run tools/fetch-deps.sh")
endif()
target_compile_definitions(tonwerk_deps INTERFACE
    ORT_API_MANUAL_INIT # the runtime's function table is fetched on first use, not by a static initialiser
    PLOG_LOCAL) # our logger is ours, even in a host that uses plog too
if(WIN32)
    target_compile_definitions(tonwerk_deps INTERFACE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
endif()

# A resampler of headers alone.
add_library(tonwerk_r8brain INTERFACE)
target_include_directories(tonwerk_r8brain SYSTEM INTERFACE "${resamplerFolder}")
target_compile_definitions(tonwerk_r8brain INTERFACE $<$<BOOL:${WIN32}>:_USE_MATH_DEFINES>)

# The inference runtime is never linked in. On Linux the loader opens it; on Windows it is a delayed import, whose
# import library is made here from the one name that is imported.
add_library(tonwerk_runtime INTERFACE)
target_include_directories(tonwerk_runtime SYSTEM INTERFACE "${runtimeHeaders}")
if(WIN32)
    set(definitions "${PROJECT_SOURCE_DIR}/cmake/onnxruntime_pelagrin.def")
    if(MSVC)
        set(importLibrary "${PROJECT_BINARY_DIR}/onnxruntime_pelagrin.lib")
        set(makeImportLibrary "${CMAKE_AR}" /nologo /machine:x64 "/def:${definitions}" "/out:${importLibrary}")
        target_link_libraries(tonwerk_runtime INTERFACE delayimp)
        target_link_options(tonwerk_runtime INTERFACE /DELAYLOAD:onnxruntime_pelagrin.dll)
    else()
        set(importLibrary "${PROJECT_BINARY_DIR}/libonnxruntime_pelagrin.a")
        set(makeImportLibrary
            "${TONWERK_DLLTOOL}" -m i386:x86-64 -d "${definitions}" -l "${importLibrary}")
        target_link_libraries(tonwerk_runtime INTERFACE delayimp)
        target_link_options(tonwerk_runtime INTERFACE -Wl,-Xlink=-delayload:onnxruntime_pelagrin.dll)
    endif()
    add_custom_command(
        OUTPUT "${importLibrary}"
        COMMAND ${makeImportLibrary}
        DEPENDS "${definitions}"
        VERBATIM)
    add_custom_target(runtime_import_library DEPENDS "${importLibrary}")
    add_dependencies(tonwerk_runtime runtime_import_library)
    target_link_libraries(tonwerk_runtime INTERFACE "${importLibrary}")
    set(runtimeFiles "${runtimeFolder}/onnxruntime_pelagrin.dll" "${runtimeFolder}/DirectML.dll")
    if(MINGW)
        set(compilerFiles "${TONWERK_LIBSTDCXX_DLL}" "${TONWERK_LIBGCC_DLL}" "${TONWERK_WINPTHREAD_DLL}")
    endif()
else()
    target_link_libraries(tonwerk_runtime INTERFACE ${CMAKE_DL_LIBS})
    set(runtimeFiles "${runtimeFolder}/libonnxruntime_pelagrin.so")
endif()

# Files that lie beside the products. The compiler's own libraries come with 20 MB of debug information.
set(placedFiles)
foreach(file IN LISTS runtimeFiles compilerFiles audioShared)
    cmake_path(GET file FILENAME name)
    set(placed "${TONWERK_OUTPUT_DIR}/${name}")
    if(file IN_LIST compilerFiles)
        # With a fixed date in the image, so that the file is the same every time.
        set(place "${CMAKE_COMMAND}" -E env SOURCE_DATE_EPOCH=1 "${CMAKE_STRIP}" -o "${placed}" "${file}")
    else()
        set(place "${CMAKE_COMMAND}" -E copy "${file}" "${placed}")
    endif()
    add_custom_command(
        OUTPUT "${placed}"
        COMMAND ${place}
        DEPENDS "${file}"
        VERBATIM)
    list(APPEND placedFiles "${placed}")
endforeach()
add_custom_target(runtime_files ALL DEPENDS ${placedFiles})
