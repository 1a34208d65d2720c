# 32-bit PowerPC, big-endian.
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(triplet powerpc-linux-gnu)
set(emulator qemu-ppc)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
