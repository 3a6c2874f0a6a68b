# 32-bit big-endian PowerPC, the driver's first platform, run under qemu's user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_FIND_ROOT_PATH /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# The threshold is malloc's own default. Setting it keeps malloc from raising it once a large block is
# freed: a driver that is made again would then ask for thousands of blocks below the break, where
# none fits into 32 bits, and the emulator takes a millisecond for each refusal.
set(CMAKE_CROSSCOMPILING_EMULATOR
    "qemu-ppc;-E;MALLOC_MMAP_THRESHOLD_=131072;-L;/usr/powerpc-linux-gnu")
# 64-bit atomics are library calls on this target.
set(CMAKE_CXX_STANDARD_LIBRARIES "-latomic")
