# 32-bit Arm with hardware floating point (armhf), with Debian's cross compiler. GLib for the target
# comes from the tree that CMAKE_SYSROOT names or, without one, from the machine's armhf packages.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triplet arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
# The compiler has much to say of objects of older compilers, of which there are none.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CMAKE_SYSROOT)

# Programs, gdbus-codegen among them, are the build machine's; all else is the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
if(CMAKE_SYSROOT)
    set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
    set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
endif()
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${triplet}/pkgconfig)

# The cross linker does not follow a library's own search path to the libraries that it needs.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,--allow-shlib-undefined)

# The tests run on the build machine, emulated.
find_program(QEMU_ARM NAMES qemu-arm-static qemu-arm)
if(QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_ARM})
    if(CMAKE_SYSROOT)
        list(APPEND CMAKE_CROSSCOMPILING_EMULATOR -L ${CMAKE_SYSROOT})
    endif()
endif()
