option(ORVAN_BUILD_TESTS "Build the test suites" ON)
option(ORVAN_BUILD_BENCH "Build the benchmarks" OFF)
option(ORVAN_WERROR "Treat warnings as errors" OFF)
option(ORVAN_LIBFUZZER "Link the fuzz targets with libFuzzer (needs clang)" OFF)
option(ORVAN_TARGET_PI "Build for the instrument's own controller board, against its wiringPi" OFF)
set(ORVAN_SANITIZE "" CACHE STRING "Sanitizers for everything, as -fsanitize takes them")

# On 32-bit machines too, files have 64-bit sizes, offsets and inode numbers; without it readdir() fails on file
# systems that use them. time_t stays 32 bits there, as in the interfaces of Debian 12's libraries.
add_compile_definitions(_FILE_OFFSET_BITS=64)

# Our targets get their warnings from this interface library.
add_library(orvan_warnings INTERFACE)
target_compile_options(orvan_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${ORVAN_WERROR}>:-Werror>)
# When optimising, GCC 12 falsely warns that std::string's copying overlaps, is too long or out of bounds (GCC bugs
# 105329 and 105651); debug builds are not affected.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    foreach(warning IN ITEMS restrict stringop-overflow stringop-overread array-bounds)
        target_compile_options(orvan_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-${warning}>)
    endforeach()
endif()

# So that libFuzzer sees an input's path through the libraries.
if(ORVAN_LIBFUZZER)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(ORVAN_SANITIZE)
    add_compile_options(-fsanitize=${ORVAN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${ORVAN_SANITIZE})
endif()

# ccache cannot look inside a precompiled header; with this setting it uses the header's source instead.
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()
