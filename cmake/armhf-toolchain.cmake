# Cross build for 32-bit ARM hard-float Linux with Debian's arm-linux-gnueabihf
# toolchain. Libraries (json-c, libcurl, GoogleTest and their dependencies) come
# from a sysroot of unpacked armhf packages: DSD_ARMHF_SYSROOT (scripts/cross-armhf.sh).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT DSD_ARMHF_SYSROOT)
  set(DSD_ARMHF_SYSROOT $ENV{DSD_ARMHF_SYSROOT})
endif()
set(_triplet_lib ${DSD_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf)

set(CMAKE_FIND_ROOT_PATH ${DSD_ARMHF_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config must look only into the sysroot: scripts/cross-armhf.sh exports
# PKG_CONFIG_SYSROOT_DIR and PKG_CONFIG_LIBDIR before configuring.

# The sysroot's shared libraries pull further ones in; let the linker find them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_triplet_lib} -Wl,-rpath-link,${DSD_ARMHF_SYSROOT}/lib/arm-linux-gnueabihf")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${DSD_ARMHF_SYSROOT})
