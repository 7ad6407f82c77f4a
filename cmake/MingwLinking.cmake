# SPDX-License-Identifier: MIT
# MinGW's GCC compiles, but clang++ with LLVM's lld links: GNU ld cannot write the delay-import directory that loads
# the inference runtime on its first call, and GCC does not hand over to another linker here.
find_program(TONWERK_CLANGXX NAMES clang++ clang++-14 REQUIRED)
find_program(TONWERK_LLD NAMES ld.lld ld.lld-14 REQUIRED)
find_program(TONWERK_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)

function(tonwerk_mingw_file name result)
    execute_process(
        COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${name}"
        OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT IS_ABSOLUTE "${path}")
        message(FATAL_ERROR "MinGW has no ${name}: run tools/setup.sh windows")
    endif()
    set(${result} "${path}" PARENT_SCOPE)
endfunction()

tonwerk_mingw_file(libstdc++-6.dll TONWERK_LIBSTDCXX_DLL)
tonwerk_mingw_file(libgcc_s_seh-1.dll TONWERK_LIBGCC_DLL)
tonwerk_mingw_file(libwinpthread-1.dll TONWERK_WINPTHREAD_DLL)
tonwerk_mingw_file(libssp.a TONWERK_LIBSSP)
cmake_path(GET TONWERK_LIBSTDCXX_DLL PARENT_PATH gccFolder)

set(linker "\"${TONWERK_CLANGXX}\" --target=x86_64-w64-mingw32 -fuse-ld=lld -stdlib=libstdc++ \"-L${gccFolder}\"")
string(APPEND linker " -Wl,-Xlink=-Brepro") # a hash in place of the time: the same objects give the same file
foreach(rule CMAKE_CXX_LINK_EXECUTABLE CMAKE_CXX_CREATE_SHARED_LIBRARY)
    string(REPLACE "<CMAKE_CXX_COMPILER>" "${linker}" ${rule} "${${rule}}")
endforeach()

# What GCC would add as a linker: its threads, and the stack protector's few functions, which are linked statically
# because as a DLL they would be one more file to ship.
set(CMAKE_CXX_STANDARD_LIBRARIES "-lpthread \"${TONWERK_LIBSSP}\" ${CMAKE_CXX_STANDARD_LIBRARIES}")
set(CMAKE_C_STANDARD_LIBRARIES "\"${TONWERK_LIBSSP}\" ${CMAKE_C_STANDARD_LIBRARIES}") # C is linked by GCC itself
