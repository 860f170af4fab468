# What `cmake --install` installs: the libraries with their headers, the programs, and the files for finding
# the library with find_package and pkg-config.
include(CMakePackageConfigHelpers)

# The hardware layer for use without an instrument.
if(NOT ORVAN_TARGET_PI)
    set(machine orvan_board orvan_hw)
endif()
install(TARGETS orvan_sdk orvan_data orvan_utils sys_cmd scpi orvan_common ${machine}
    EXPORT orvan_sdkTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/orvan_sdk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Only the common headers of the shared libraries' interfaces, and those that public headers include.
set(common_headers
    crc32_utils.h dataorvan.h flash_params.h maintenance_frame.h option_entry.h orvan_fs_utils.h sys_cmd.h)
list(TRANSFORM common_headers PREPEND ${PROJECT_SOURCE_DIR}/common/include/)
install(FILES ${common_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/scpi/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/orvan_sdk)
install(EXPORT orvan_sdkTargets NAMESPACE orvan:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvan_sdkConfig.cmake.in
    ${PROJECT_BINARY_DIR}/orvan_sdkConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvan_sdkConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/orvan_sdkConfig.cmake
    ${PROJECT_BINARY_DIR}/orvan_sdkConfigVersion.cmake
    DESTINATION ${package_dir})

cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE up_to_prefix)
set(ORVAN_PC_PREFIX "\${pcfiledir}/${up_to_prefix}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/orvan_sdk.pc.in ${PROJECT_BINARY_DIR}/orvan_sdk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvan_sdk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
