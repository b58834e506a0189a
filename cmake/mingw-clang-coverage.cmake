# Cross build for 64-bit Windows that counts what the tests run, with the newer clang that
# ./dev coverage uses on both platforms. Debian has no runtime for its counters on Windows;
# profile_runtime.cmake builds it.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-clang.cmake)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
# This clang has control-flow guard, but Debian's start-up code has not.
set(KIV_HAS_GUARD_CF OFF CACHE BOOL "Whether the linker knows control-flow guard")
# Debian's headers for Windows are older than this clang: both define one of the intrinsics, and they
# include a header of clang that only warns.
set(CMAKE_CXX_FLAGS_INIT "-D__INTRINSIC_DEFINED___cpuidex -Wno-#warnings")
