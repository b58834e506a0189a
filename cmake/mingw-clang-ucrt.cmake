# Cross build for 64-bit Windows with clang and lld on the universal C runtime. Debian's start-up
# code and static libraries were built for msvcrt.dll. libucrt.a contains the functions that they
# need and that this runtime does not have, except for _setjmp.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-clang.cmake)

# Only the DLLs and programs in C are compiled with the headers of this runtime. A type in the names
# of the C++ library's functions, mbstate_t, is another one there.
set(KIVSDU_RUNTIME ucrt)
set(KIVSDU_RUNTIME_DEFINITIONS _UCRT)

# clang adds msvcrt unless the command line names another C runtime.
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -lucrt")
# Both functions take the buffer and the frame. The thread library calls the first.
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT
       " -lucrt -Wl,-Xlink=-alternatename:_setjmp=__intrinsic_setjmpex")
