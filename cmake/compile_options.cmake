# Compile options of every target in this project. Warnings are errors with every compiler.
add_library(kiv_options INTERFACE)
target_include_directories(kiv_options INTERFACE ${PROJECT_SOURCE_DIR}/include
                           ${PROJECT_BINARY_DIR}/generated)

if(MSVC)
  # 5030: an attribute of another compiler is ignored.
  target_compile_options(kiv_options INTERFACE /W4 /WX /wd5030 /utf-8 /permissive-)
  target_compile_definitions(kiv_options INTERFACE _CRT_SECURE_NO_WARNINGS)
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

if(KIVSDU_SANITIZE)
  add_compile_options(-fsanitize=${KIVSDU_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  # Tests replace functions by others of a compatible calling convention.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND KIVSDU_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize=function)
  endif()
  add_link_options(-fsanitize=${KIVSDU_SANITIZE})
endif()
