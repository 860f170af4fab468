# The instrument's 32-bit processor, with Debian's cross compiler; programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Nothing compiled by GCC 7.0 or older is linked, so notes about its ABI changes are irrelevant.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# scripts/setup unpacks the armhf packages here where they cannot be installed; this machine's own
# packages are also searched, for installed armhf packages and architecture-independent headers.
set(armhf_packages ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot)
set(CMAKE_FIND_ROOT_PATH ${armhf_packages})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(pkg_config_folders ${armhf_packages}/usr/lib/arm-linux-gnueabihf /usr/lib/arm-linux-gnueabihf /usr/share)
list(TRANSFORM pkg_config_folders APPEND /pkgconfig)
list(JOIN pkg_config_folders ":" pkg_config_folders)
set(ENV{PKG_CONFIG_LIBDIR} ${pkg_config_folders})

# The cross compiler's C and C++ libraries, and what is unpacked there, are all a program needs to start: run
# paths cover the libraries that it was linked with, but not their dependencies.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=${armhf_packages}/usr/lib/arm-linux-gnueabihf)
