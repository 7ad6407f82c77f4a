# SPDX-License-Identifier: MIT
# What `cmake --install` lays out, which is what the SDK package contains. Everything finds its neighbours from where it
# lies, so the folder may be moved.
include(CMakePackageConfigHelpers)

set_target_properties(tonwerk_proc_multistem PROPERTIES EXPORT_NAME tonwerk)
set_target_properties(tonwerk_c PROPERTIES EXPORT_NAME c)
install(TARGETS tonwerk_proc_multistem tonwerk_c EXPORT tonwerk-targets
    RUNTIME DESTINATION bin LIBRARY DESTINATION lib ARCHIVE DESTINATION lib
    INCLUDES DESTINATION include)
if(UNIX)
    set_target_properties(tonwerk-separate PROPERTIES INSTALL_RPATH "$ORIGIN;$ORIGIN/../lib") # built and installed
endif()
install(TARGETS tonwerk-separate RUNTIME DESTINATION bin)
install(DIRECTORY include/tonwerk DESTINATION include FILES_MATCHING PATTERN "*.h")

# The inference runtime, and with MinGW its libraries, lie beside ours.
if(WIN32)
    set(sharedFolder bin)
else()
    set(sharedFolder lib)
endif()
set(shippedFiles ${placedFiles})
if(WIN32 AND TONWERK_DIRECTML)
    # What Microsoft's own package of this library carries, beside it.
    install(FILES packaging/licenses/onnxruntime-LICENSE.txt DESTINATION ${sharedFolder} RENAME DirectML-LICENSE.txt)
    install(FILES packaging/licenses/onnxruntime-ThirdPartyNotices.txt DESTINATION ${sharedFolder}
        RENAME DirectML-ThirdPartyNotices.txt)
else()
    list(FILTER shippedFiles EXCLUDE REGEX "/DirectML\\.dll$")
endif()
install(FILES ${shippedFiles} DESTINATION ${sharedFolder})
if(MINGW)
    # The C library's import library is of the short format, which Microsoft's linker and MinGW's read alike: two names for it.
    install(FILES "$<TARGET_LINKER_FILE:tonwerk_c>" DESTINATION lib RENAME libtonwerk_c.dll.a)
endif()

# find_package(tonwerk)
if(WIN32)
    set(runtimeNames tonwerk_proc_multistem.dll tonwerk_c.dll)
else()
    set(runtimeNames libtonwerk_proc_multistem.so libtonwerk_c.so.1)
endif()
foreach(file IN LISTS shippedFiles)
    cmake_path(GET file FILENAME name)
    list(APPEND runtimeNames "${name}")
endforeach()
set(configFolder lib/cmake/tonwerk)
configure_package_config_file(cmake/tonwerk-config.cmake.in "${PROJECT_BINARY_DIR}/tonwerk-config.cmake"
    INSTALL_DESTINATION ${configFolder})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/tonwerk-config-version.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/tonwerk-config.cmake" "${PROJECT_BINARY_DIR}/tonwerk-config-version.cmake"
    DESTINATION ${configFolder})
install(EXPORT tonwerk-targets NAMESPACE tonwerk:: DESTINATION ${configFolder})

# pkg-config
configure_file(cmake/tonwerk_c.pc.in "${PROJECT_BINARY_DIR}/tonwerk_c.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tonwerk_c.pc" DESTINATION lib/pkgconfig)

# What is read, and what is not ours.
install(FILES packaging/README.md LICENSE CHANGELOG.md THIRD-PARTY.md DESTINATION .)
install(DIRECTORY docs DESTINATION .)
install(DIRECTORY examples DESTINATION . PATTERN __pycache__ EXCLUDE)
install(DIRECTORY models DESTINATION . OPTIONAL)
install(DIRECTORY "${depsFolder}/licenses" packaging/licenses DESTINATION .)
foreach(model IN LISTS madeModels)
    if(model IN_LIST shippedModels)
        install(FILES "${model}" DESTINATION models)
        install(FILES "${weightsFolder}/LICENSE" DESTINATION licenses RENAME spleeter.txt)
    endif()
endforeach()
set(commonLicences Apache-2.0 MPL-2.0)
if(MINGW)
    # Debian's records of what MinGW's runtime libraries are made of.
    install(FILES /usr/share/doc/gcc-mingw-w64-base/copyright DESTINATION licenses RENAME gcc-runtime.txt)
    install(FILES /usr/share/doc/mingw-w64-common/copyright DESTINATION licenses RENAME mingw-w64.txt)
    list(APPEND commonLicences GPL-3)
endif()
if(NOT CMAKE_HOST_WIN32)
    foreach(licence IN LISTS commonLicences) # the texts that the records only name
        install(FILES /usr/share/common-licenses/${licence} DESTINATION licenses RENAME ${licence}.txt)
    endforeach()
endif()

# The package itself: `make package`.
if(WIN32)
    set(packageName "tonwerk-${PROJECT_VERSION}-windows-x64.zip")
else()
    set(packageName "tonwerk-${PROJECT_VERSION}-linux-x64.tar.gz")
endif()
add_custom_target(sdk
    COMMAND "${TONWERK_PYTHON}" "${PROJECT_SOURCE_DIR}/tools/make_package.py" "${PROJECT_BINARY_DIR}"
        "${PROJECT_SOURCE_DIR}/build/package/${packageName}"
    DEPENDS products
    VERBATIM USES_TERMINAL)
add_dependencies(sdk products)
