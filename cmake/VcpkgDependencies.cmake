# SPDX-License-Identifier: MIT
# The dependencies from vcpkg (vcpkg.json), for a native build on Windows without .deps. Written from the ports' files and
# never run so far: docs/integrating.md says how it is meant.
#
# vcpkg has no build of the inference runtime with DirectML. Unpack its NuGet packages into one folder and name it:
# TONWERK_RUNTIME_DIR holds onnxruntime_cxx_api.h and its neighbours, onnxruntime_pelagrin.dll (which is onnxruntime.dll,
# renamed) and DirectML.dll.
set(TONWERK_RUNTIME_DIR "" CACHE PATH "The folder of the inference runtime's headers and DLLs")
if(NOT EXISTS "${TONWERK_RUNTIME_DIR}/onnxruntime_cxx_api.h")
    message(FATAL_ERROR "Set TONWERK_RUNTIME_DIR to the folder of onnxruntime_cxx_api.h and onnxruntime_pelagrin.dll")
endif()
set(runtimeHeaders "${TONWERK_RUNTIME_DIR}")
set(runtimeFolder "${TONWERK_RUNTIME_DIR}")

find_package(CLI11 CONFIG REQUIRED)
find_package(nlohmann_json CONFIG REQUIRED)
find_package(pffft CONFIG REQUIRED)
find_package(plog CONFIG REQUIRED)
find_package(xtensor CONFIG REQUIRED)
find_path(miniaudioFolder miniaudio.h REQUIRED)
find_path(stbFolder stb_vorbis.c REQUIRED)
find_path(resamplerFolder CDSPResampler.h PATH_SUFFIXES r8brain r8brain-free-src REQUIRED)
find_package(boost_hash2 CONFIG REQUIRED)

# Our sources name stb's headers as Debian does.
file(WRITE "${PROJECT_BINARY_DIR}/vcpkg/stb/stb_vorbis.h" "#include <stb_vorbis.c>\n")
file(WRITE "${PROJECT_BINARY_DIR}/vcpkg/stb/stb_image_write.h" "#include <stb_image_write.h>\n")

target_link_libraries(tonwerk_deps INTERFACE
    CLI11::CLI11 nlohmann_json::nlohmann_json plog::plog xtensor Boost::hash2)
target_include_directories(tonwerk_deps SYSTEM INTERFACE
    "${miniaudioFolder}" "${stbFolder}" "${PROJECT_BINARY_DIR}/vcpkg")

find_path(pffftFolder pffft.h PATH_SUFFIXES pffft REQUIRED)
add_library(pffft INTERFACE)
target_link_libraries(pffft INTERFACE pffft::pffft)
target_include_directories(pffft SYSTEM INTERFACE "${pffftFolder}")
