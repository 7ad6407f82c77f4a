# SPDX-License-Identifier: MIT
# How everything is compiled: warnings for our own code, hardening and sanitizers for all of it.

# The end of the names of sources for one system: Name_posix.cpp, Name_win32.cpp.
if(WIN32)
    set(platform win32)
else()
    set(platform posix)
endif()

add_library(tonwerk_warnings INTERFACE)
if(MSVC)
    target_compile_options(tonwerk_warnings INTERFACE /W4 /WX /permissive- /utf-8)
else()
    target_compile_options(tonwerk_warnings INTERFACE
        -Werror -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wdouble-promotion
        $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
        -Wcast-qual -Wcast-align
        $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
        $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
        -Wformat=2 -Wundef -Wimplicit-fallthrough
        # A constructor's parameter may bear the name of the member that it sets.
        $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local -Wduplicated-cond -Wduplicated-branches -Wlogical-op>
        $<$<CXX_COMPILER_ID:Clang>:-Wshadow>)
endif()

# Stack protector, checked library calls, and images whose tables are read-only and whose addresses are random.
# lld writes DYNAMIC_BASE, HIGH_ENTROPY_VA and NX_COMPAT into Windows images by itself.
if(MSVC)
    add_compile_options(/GS /guard:cf)
    add_link_options(/guard:cf /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT)
else()
    add_compile_options(-fstack-protector-strong $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
endif()
if(UNIX)
    include(CheckPIESupported)
    check_pie_supported(LANGUAGES CXX)
    add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

add_compile_definitions($<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

if(TONWERK_SANITIZE)
    # Full debug information takes GCC six times as long here as the line numbers that reports need, and its own
    # warning about uninitialised values mistakes the sanitizers' code.
    add_compile_options($<IF:$<BOOL:${TONWERK_FUZZ}>,-O2,-O1> -g1 -fno-omit-frame-pointer -fsanitize=${TONWERK_SANITIZE} -fno-sanitize-recover=all
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    add_link_options(-fsanitize=${TONWERK_SANITIZE})
elseif(UNIX)
    add_link_options(-Wl,-z,defs)
endif()
if(TONWERK_FUZZ)
    # Watching every comparison of every sample would take two thirds of the time and tell nothing.
    add_compile_options(-fsanitize=fuzzer-no-link -fno-sanitize-coverage=trace-cmp,indirect-calls)
endif()
