# The word size and byte order of a 64-bit big-endian host, run under user-mode emulation.
# Debian: g++-s390x-linux-gnu, qemu-user, googletest.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x -L /usr/s390x-linux-gnu)
