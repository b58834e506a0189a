# Cross build for 64-bit Windows with mingw-w64's GCC, as a second compiler for the same sources.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(triple x86_64-w64-mingw32)

set(CMAKE_C_COMPILER ${triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${triple}-g++-posix)
set(CMAKE_RC_COMPILER ${triple}-windres)

include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
