# Builds for aarch64 Linux with Debian's cross compiler and the arm64
# packages of multiarch, for make check-arm64, which runs the suite under
# qemu's user-mode emulator: the instruction set of current Macs, run here.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# Plain char is signed on Apple's arm64, as on x86-64, and unsigned on
# Linux's: the emulated run takes the Mac's side.
set(CMAKE_CXX_FLAGS_INIT "-fsigned-char")

# The arm64 libraries, and their CMake and pkg-config files, sit in the
# root's own aarch64 folders; pkg-config would otherwise answer with the
# host's (OpenSSL's libcrypto, say).
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")

# Tests, and the tool the tool tests start, run under the emulator with the
# system's arm64 glibc and its own loader (-L /): the cross toolchain's
# loader beside that glibc hangs in the first pthread_create.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /)
