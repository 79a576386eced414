# Compiles for macOS with zig's clang against its bundled macOS SDK headers and
# libc++. scripts/check-macos passes TARSEL_ZIG_CXX, a wrapper that runs
# `zig c++ -target <arch>-macos`, and TARSEL_MACOS_ARCH.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${TARSEL_MACOS_ARCH})
set(CMAKE_CXX_COMPILER ${TARSEL_ZIG_CXX})
# The compiler's test programs are compiled, not linked: nothing links here.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_OSX_SYSROOT "")
set(CMAKE_OSX_ARCHITECTURES "")
set(CMAKE_SIZEOF_VOID_P 8)
