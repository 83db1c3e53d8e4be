# 32-bit words in the byte order of the machine at hand.
# Debian: g++-12-multilib, googletest; the package g++-multilib cannot be had beside a cross compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i386)
set(CMAKE_CXX_COMPILER g++)
# The kernel's headers serve both word sizes, but lie where only the 64-bit compiler looks.
execute_process(COMMAND g++ -print-multiarch OUTPUT_VARIABLE multiarch OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter /usr/include/${multiarch}")
