# 32-bit x86, on an x86-64 machine, which runs it. The kernel's headers are those of the machine:
# Debian's package that links them to where this target looks for them excludes cross compilers.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc-12)
set(CMAKE_CXX_COMPILER g++-12)
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT ${CMAKE_C_FLAGS_INIT})
