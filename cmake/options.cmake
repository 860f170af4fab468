option(ORVAN_BUILD_TESTS "Build the test suites" ON)
option(ORVAN_BUILD_BENCH "Build the benchmarks" OFF)
option(ORVAN_WERROR "Treat warnings as errors" OFF)
option(ORVAN_LIBFUZZER "Link the fuzz targets with libFuzzer (needs clang)" OFF)
option(ORVAN_TARGET_PI "Build for the instrument's own controller board, against its wiringPi" OFF)
set(ORVAN_SANITIZE "" CACHE STRING "Sanitizers for everything, as -fsanitize takes them")

# On 32-bit machines too, files have 64-bit sizes, offsets and inode numbers; without it readdir() fails on file
# systems that use them. Times stay as Debian 12's libraries have them in their interfaces there, of 32 bits.
add_compile_definitions(_FILE_OFFSET_BITS=64)

# Warnings are set on our own targets through this interface library.
add_library(orvan_warnings INTERFACE)
target_compile_options(orvan_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${ORVAN_WERROR}>:-Werror>)
# GCC 12 takes std::string's own copying for overlapping, too long or out of bounds when it optimises (GCC bugs
# 105329 and 105651); the debug builds do not look for these.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    foreach(warning IN ITEMS restrict stringop-overflow stringop-overread array-bounds)
        target_compile_options(orvan_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-${warning}>)
    endforeach()
endif()

# So that libFuzzer sees which way an input takes through the libraries.
if(ORVAN_LIBFUZZER)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(ORVAN_SANITIZE)
    add_compile_options(-fsanitize=${ORVAN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${ORVAN_SANITIZE})
endif()

# What a precompiled header holds, ccache cannot look into; told so, it goes by the header's own contents.
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()
