# SPDX-License-Identifier: MIT
# libsndfile with its codecs, libmpg123 and libebur128: built from their sources by the project in cmake/audio, once for
# all builds of a system that share a folder, and always without the sanitizers.
set(TONWERK_AUDIO_DIR "${PROJECT_BINARY_DIR}/audio" CACHE PATH "Where the audio libraries are built")
set(audioSources "${depsFolder}/audio")
set(audioProducts "${TONWERK_AUDIO_DIR}/products")

set(audioArguments "-DSOURCES=${audioSources}" "-DCMAKE_BUILD_TYPE=Release" "-DCMAKE_C_COMPILER=${CMAKE_C_COMPILER}"
    "-DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}")
if(CMAKE_TOOLCHAIN_FILE)
    list(APPEND audioArguments "-DCMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE}")
endif()

if(WIN32)
    set(audioShared libsndfile.dll libmpg123.dll)
    set(audioLinked libsndfile.dll.a libmpg123.dll.a libebur128.a libogg.a)
else()
    set(audioShared libsndfile.so.1 libmpg123.so.0)
    set(audioLinked libebur128.a libogg.a)
endif()
list(TRANSFORM audioShared PREPEND "${audioProducts}/")
list(TRANSFORM audioLinked PREPEND "${audioProducts}/")
foreach(library libogg libvorbis flac opus libebur128 libsndfile mpg123/ports/cmake)
    list(APPEND audioInputs "${audioSources}/${library}/CMakeLists.txt")
endforeach()
list(APPEND audioInputs "${PROJECT_SOURCE_DIR}/cmake/audio/CMakeLists.txt")
set(buildAudio "${PROJECT_SOURCE_DIR}/cmake/audio/Build.cmake")
add_custom_command(
    OUTPUT ${audioShared} ${audioLinked}
    COMMAND "${CMAKE_COMMAND}" "-DFOLDER=${TONWERK_AUDIO_DIR}" "-DARGUMENTS=${audioArguments}" "-DINPUTS=${audioInputs}"
        "-DOUTPUTS=${audioShared};${audioLinked}" "-DGENERATOR=${CMAKE_GENERATOR}" -P "${buildAudio}"
    DEPENDS ${audioInputs} "${buildAudio}"
    COMMENT "Building the audio libraries"
    VERBATIM USES_TERMINAL)

# The shared ones lie beside the products, from where they are linked.
function(tonwerk_audio_library name header file)
    add_library(${name} SHARED IMPORTED GLOBAL)
    set_target_properties(${name} PROPERTIES
        IMPORTED_LOCATION "${TONWERK_OUTPUT_DIR}/${file}"
        INTERFACE_INCLUDE_DIRECTORIES "${audioSources}/${header}")
    if(WIN32)
        set_target_properties(${name} PROPERTIES IMPORTED_IMPLIB "${audioProducts}/${file}.a")
    endif()
endfunction()
list(GET audioShared 0 sndfile)
list(GET audioShared 1 mpg123)
cmake_path(GET sndfile FILENAME sndfile)
cmake_path(GET mpg123 FILENAME mpg123)
tonwerk_audio_library(sndfile libsndfile/include "${sndfile}")
tonwerk_audio_library(mpg123 mpg123/src/include "${mpg123}")
target_compile_definitions(mpg123 INTERFACE $<$<BOOL:${WIN32}>:LINK_MPG123_DLL>)
foreach(name ebur128 ogg)
    add_library(${name} STATIC IMPORTED GLOBAL)
    set_target_properties(${name} PROPERTIES IMPORTED_LOCATION "${audioProducts}/lib${name}.a")
endforeach()
set_target_properties(ebur128 PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${audioSources}/libebur128/ebur128"
    INTERFACE_LINK_LIBRARIES "$<$<BOOL:${UNIX}>:m>")
# One of its headers is made by the build.
file(MAKE_DIRECTORY "${TONWERK_AUDIO_DIR}/libogg/include")
set_target_properties(ogg PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${audioSources}/libogg/include;${TONWERK_AUDIO_DIR}/libogg/include")
add_custom_target(audio_libraries DEPENDS ${audioShared} ${audioLinked})
add_dependencies(ogg audio_libraries)
