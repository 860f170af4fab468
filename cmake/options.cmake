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
# GCC 12 reports std::string's own copying as overlapping when it optimises (GCC bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(orvan_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
    # With 32-bit sizes it also takes the same copies for longer than any object.
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        target_compile_options(orvan_warnings INTERFACE
            "$<$<COMPILE_LANGUAGE:CXX>:-Wno-stringop-overflow;-Wno-stringop-overread;-Wno-array-bounds>")
    endif()
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
