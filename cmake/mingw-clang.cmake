# Cross build for 64-bit Windows with clang and lld over the mingw-w64 headers and libraries.
# docs/toolchain.md explains why this compiler builds the DLL.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(triple x86_64-w64-mingw32)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${triple})
set(CMAKE_CXX_COMPILER_TARGET ${triple})
set(CMAKE_RC_COMPILER ${triple}-windres)

# clang does not find Debian's GCC folder, because its name is not a plain version number.
execute_process(COMMAND ${triple}-g++-posix -print-libgcc-file-name
                OUTPUT_VARIABLE libgcc OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(gcc_folder "${libgcc}" DIRECTORY)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${gcc_folder}/include/c++
    ${gcc_folder}/include/c++/${triple} ${gcc_folder}/include/c++/backward)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -L${gcc_folder}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -L${gcc_folder}")

include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
