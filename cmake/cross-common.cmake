# Shared part of the cross toolchain files: the compiler for QXPLATFORM_TRIPLE,
# the target's zlib, zstd and GoogleTest from the sysroot that
# scripts/cross.sh unpacks, and qemu to run what is built.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${QXPLATFORM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${QXPLATFORM_TRIPLE}-g++)

if(NOT QXPLATFORM_SYSROOT)
  set(QXPLATFORM_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-${CMAKE_SYSTEM_PROCESSOR}")
endif()
set(QXPLATFORM_SYSROOT "${QXPLATFORM_SYSROOT}" CACHE PATH "Unpacked target libraries")
# try_compile projects get the variables too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QXPLATFORM_SYSROOT QXPLATFORM_TRIPLE)

set(CMAKE_FIND_ROOT_PATH "/usr/${QXPLATFORM_TRIPLE}" "${QXPLATFORM_SYSROOT}")
set(CMAKE_LIBRARY_ARCHITECTURE ${QXPLATFORM_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler looks in the unpacked headers and libraries too (zconf.h sits
# in the per-architecture include folder).
set(qx_inc "-isystem ${QXPLATFORM_SYSROOT}/usr/include -isystem ${QXPLATFORM_SYSROOT}/usr/include/${QXPLATFORM_TRIPLE}")
set(qx_lib "-L${QXPLATFORM_SYSROOT}/usr/lib/${QXPLATFORM_TRIPLE} -Wl,-rpath-link,${QXPLATFORM_SYSROOT}/usr/lib/${QXPLATFORM_TRIPLE} -Wl,-rpath-link,${QXPLATFORM_SYSROOT}/lib/${QXPLATFORM_TRIPLE}")
set(CMAKE_C_FLAGS_INIT "${qx_inc}")
set(CMAKE_CXX_FLAGS_INIT "${qx_inc}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${qx_lib}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${qx_lib}")

# pkg-config (zstd) reads the target's .pc files only.
set(ENV{PKG_CONFIG_LIBDIR} "${QXPLATFORM_SYSROOT}/usr/lib/${QXPLATFORM_TRIPLE}/pkgconfig:${QXPLATFORM_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${QXPLATFORM_SYSROOT}")
set(ENV{PKG_CONFIG_PATH} "")

# Target programs run under qemu-user with the cross C library and the
# unpacked shared libraries.
find_program(QXPLATFORM_QEMU qemu-${CMAKE_SYSTEM_PROCESSOR} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${QXPLATFORM_QEMU};-L;/usr/${QXPLATFORM_TRIPLE};-E;LD_LIBRARY_PATH=${QXPLATFORM_SYSROOT}/usr/lib/${QXPLATFORM_TRIPLE}:${QXPLATFORM_SYSROOT}/lib/${QXPLATFORM_TRIPLE}")
