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
find_path(stbFolder stb_image_write.h REQUIRED)
find_path(resamplerFolder CDSPResampler.h PATH_SUFFIXES r8brain r8brain-free-src REQUIRED)
find_package(boost_hash2 CONFIG REQUIRED)
find_package(boost_lockfree CONFIG REQUIRED)

# Our sources name stb's header as Debian does.
file(WRITE "${PROJECT_BINARY_DIR}/vcpkg/stb/stb_image_write.h" "#include <stb_image_write.h>\n")

target_link_libraries(tonwerk_deps INTERFACE
    CLI11::CLI11 nlohmann_json::nlohmann_json plog::plog xtensor Boost::hash2
    Boost::lockfree)
target_include_directories(tonwerk_deps SYSTEM INTERFACE
    "${stbFolder}" "${PROJECT_BINARY_DIR}/vcpkg")

find_path(pffftFolder pffft.h PATH_SUFFIXES pffft REQUIRED)
add_library(tonwerk_pffft INTERFACE)
target_link_libraries(tonwerk_pffft INTERFACE pffft::pffft)
target_include_directories(tonwerk_pffft SYSTEM INTERFACE "${pffftFolder}")

# The audio libraries, as shared ones that vcpkg copies beside the program.
find_package(SndFile CONFIG REQUIRED)
find_package(mpg123 CONFIG REQUIRED)
find_package(Ogg CONFIG REQUIRED)
find_path(ebur128Folder ebur128.h REQUIRED)
find_library(ebur128Library ebur128 REQUIRED)
foreach(library sndfile mpg123 ogg ebur128)
    add_library(${library} INTERFACE)
endforeach()
target_link_libraries(sndfile INTERFACE SndFile::sndfile)
target_link_libraries(mpg123 INTERFACE MPG123::libmpg123)
target_link_libraries(ogg INTERFACE Ogg::ogg)
target_link_libraries(ebur128 INTERFACE "${ebur128Library}")
target_include_directories(ebur128 SYSTEM INTERFACE "${ebur128Folder}")
