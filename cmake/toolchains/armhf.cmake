# 32-bit ARM (hard float) with Debian's cross compiler; programs run under qemu.
#
# The folder that scripts/armhf-sysroot creates is found relative to this file, so that other projects can refer to the
# file by its path. NIMA_ARMHF_SYSROOT selects another folder.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT NIMA_ARMHF_SYSROOT)
  get_filename_component(NIMA_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../../build/armhf-sysroot" ABSOLUTE)
endif()
# try_compile reads this file again in a project of its own.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NIMA_ARMHF_SYSROOT)

set(_nima_cross_root /usr/arm-linux-gnueabihf)
set(_nima_library_dirs
    "${NIMA_ARMHF_SYSROOT}/lib/arm-linux-gnueabihf"
    "${NIMA_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf")

set(CMAKE_FIND_ROOT_PATH "${NIMA_ARMHF_SYSROOT}" "${_nima_cross_root}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# A package built for ARM is installed under a prefix in the host's file system.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# The host's own .pc files describe the wrong architecture. The ARM ones name folders of the target's file system; the
# flags below replace these.
set(ENV{PKG_CONFIG_LIBDIR}
    "${NIMA_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${NIMA_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSTEM_INCLUDE_PATH} /usr/include:/usr/include/arm-linux-gnueabihf)
set(ENV{PKG_CONFIG_SYSTEM_LIBRARY_PATH} /lib:/usr/lib:/lib/arm-linux-gnueabihf:/usr/lib/arm-linux-gnueabihf)

# Without unwind tables a backtrace ends at its first frame. -idirafter, because libunwind has an unwind.h that must not
# hide the compiler's.
set(_nima_flags "-funwind-tables -idirafter \"${NIMA_ARMHF_SYSROOT}/usr/include/arm-linux-gnueabihf\"")
string(APPEND _nima_flags " -idirafter \"${NIMA_ARMHF_SYSROOT}/usr/include\"")
set(CMAKE_C_FLAGS_INIT "${_nima_flags}")
set(CMAKE_CXX_FLAGS_INIT "${_nima_flags}")

# -rpath-link for the dependencies of the shared libraries in there.
set(_nima_link_flags "")
foreach(_nima_dir IN LISTS _nima_library_dirs)
  string(APPEND _nima_link_flags " -L\"${_nima_dir}\" -Wl,-rpath-link,\"${_nima_dir}\"")
endforeach()
string(STRIP "${_nima_link_flags}" _nima_link_flags)
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_nima_link_flags}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_nima_link_flags}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${_nima_link_flags}")

# qemu looks below -L first, so /lib and /usr/lib are the cross compiler's.
list(JOIN _nima_library_dirs ":" _nima_library_path)
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L "${_nima_cross_root}" -E "LD_LIBRARY_PATH=/lib:/usr/lib:${_nima_library_path}")
