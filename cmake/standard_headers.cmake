# The standard headers that most sources use, compiled once: they take half the time of a short source. The
# sources still include what they use: the release preset builds without precompiled headers.

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/standard_headers.cpp CONTENT "// A target needs a source.\n")
add_library(orvan_standard_headers STATIC EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/standard_headers.cpp)
# A precompiled header is only valid for sources compiled with the same options. ccache, which may preprocess first,
# would lose it without this option.
target_link_libraries(orvan_standard_headers PRIVATE orvan_warnings)
set(headers
    algorithm array atomic chrono filesystem functional map memory mutex optional string string_view thread vector)
list(TRANSFORM headers REPLACE "(.+)" "<\\1>")
target_precompile_headers(orvan_standard_headers PRIVATE ${headers})

function(orvan_use_standard_headers target)
    target_precompile_headers(${target} REUSE_FROM orvan_standard_headers)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>)
endfunction()
