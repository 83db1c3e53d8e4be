# The control board's word size and byte order: 32-bit big-endian PowerPC, run under user-mode emulation.
# Debian: g++-powerpc-linux-gnu, qemu-user, googletest.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc -L /usr/powerpc-linux-gnu)
