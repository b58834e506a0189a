# Compile options of every target in this project. Warnings are errors with every compiler.
add_library(kiv_options INTERFACE)
target_include_directories(kiv_options INTERFACE ${PROJECT_SOURCE_DIR}/include
                           ${PROJECT_BINARY_DIR}/generated)

if(MSVC)
  # 4324: a record is padded to its alignment, as the locks want it.
  # 4714: a function marked for inlining is not inlined.
  # 4996: a call is deprecated. The library's promises name the runtime's and the system's calls.
  target_compile_options(kiv_options INTERFACE /W4 /WX /wd4324 /wd4714 /wd4996 /utf-8 /permissive-)
else()
  target_compile_options(kiv_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wshadow -Wundef
    -Wcast-align -Wformat=2 -Wimplicit-fallthrough -Wno-format-nonliteral
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
endif()

if(MINGW)
  # If a C++ header comes first, this toolchain replaces the C runtime's printf and scanf by its
  # own. The definition alone does not prevent it: stdio.h must be included before everything else.
  target_compile_options(kiv_options INTERFACE -D__USE_MINGW_ANSI_STDIO=0 "SHELL:-include stdio.h")
endif()

# Whether the compiler adds code that needs functions of its own.
set(KIV_INSTRUMENTED OFF)
if(KIVSDU_SANITIZE OR KIVSDU_COVERAGE)
  set(KIV_INSTRUMENTED ON)
endif()

if(KIVSDU_SANITIZE)
  add_compile_options(-fsanitize=${KIVSDU_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  # Tests replace functions by others of a compatible calling convention.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND KIVSDU_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize=function)
  endif()
  add_link_options(-fsanitize=${KIVSDU_SANITIZE})
endif()

# Counts what of a source runs; nothing if the build is not for coverage.
set(KIV_COUNTING)
if(KIVSDU_COVERAGE)
  # Some counts are differences of counters: one that two threads raise must not lose a step.
  set(KIV_COUNTING -fprofile-instr-generate -fprofile-update=atomic -fcoverage-mapping
      -fcoverage-mcdc)
endif()

# kiv_count_coverage(): in a build for coverage, counts what of this folder's sources runs.
macro(kiv_count_coverage)
  add_compile_options(${KIV_COUNTING})
endmacro()

# Counted code needs the runtime that writes the counters.
if(KIVSDU_COVERAGE)
  if(WIN32)
    include(${CMAKE_CURRENT_LIST_DIR}/profile_runtime.cmake)
    link_libraries($<BUILD_INTERFACE:kiv_profile_runtime>)
  else()
    add_link_options(-fprofile-instr-generate)
    # For tests/support/lnx/kept_counters.cpp.
    set(KIV_KEEP_COUNTERS -Wl,--wrap=_exit,--wrap=_Exit,--wrap=abort,--wrap=__assert_fail)
  endif()
endif()

# kiv_link_fast(): links the programs of this folder and those below it with LLVM's linker if the
# compiler is clang. It takes a third of the time of the system's linker. The libraries and programs
# for users keep the system's. So does the checked flavour: LLVM's linker also redirects calls within
# a source, and some of this flavour's allocation functions call each other.
find_program(KIV_LLD ld.lld)
macro(kiv_link_fast)
  if(KIV_LLD AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT WIN32 AND NOT KIVSDU_CHECKED)
    add_link_options(-fuse-ld=lld)
  endif()
endmacro()
