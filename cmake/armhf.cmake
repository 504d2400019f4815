# The controller's processor: 32-bit ARM with floating-point registers, Debian's armhf. The C and C++ libraries are the
# cross compiler's; all others are taken from the folder that script/sysroot makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# File sizes, inode numbers and times have 64 bits in every file, so that all agree on their structures: a program that
# asks for less cannot read the folders of today's file systems.
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mfpu=vfpv3-d16 -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
# Says of every function that takes a std::vector by value that GCC 7 did it otherwise.
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -Wno-psabi")

get_filename_component(SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf" ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Libraries need others of their folders, where the linker has to find them. The programs themselves name no folder of
# this machine: they are the ones that go to the board.
string(JOIN ":" libraries ${SYSROOT}/usr/lib/arm-linux-gnueabihf ${SYSROOT}/lib/arm-linux-gnueabihf)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${libraries}")
set(CMAKE_SKIP_RPATH ON)

# Runs the programs on a machine with another processor. It ends in the loader and its options, so that libraries are
# looked for and preloaded for the program alone, not for the emulator or for programs of this machine that it starts.
find_program(QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${QEMU_ARM} -L /usr/arm-linux-gnueabihf /usr/arm-linux-gnueabihf/lib/ld-linux-armhf.so.3
    --library-path ${CMAKE_BINARY_DIR}/lib:${libraries}
    CACHE STRING "Words in front of a program" FORCE)
