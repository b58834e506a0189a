# Options of every target of this project. Warnings are errors, on every compiler.
add_library(kiv_options INTERFACE)
target_include_directories(kiv_options INTERFACE ${PROJECT_SOURCE_DIR}/include
                           ${PROJECT_BINARY_DIR}/generated)

if(MSVC)
  # 5030: attributes of other compilers.
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
  # The C++ headers of this toolchain swap the C runtime's printf and scanf families for copies of
  # their own as soon as one of them comes first. The definition alone does not help; stdio.h has
  # to come before everything.
  target_compile_options(kiv_options INTERFACE -D__USE_MINGW_ANSI_STDIO=0 "SHELL:-include stdio.h")
endif()

if(KIVSDU_SANITIZE)
  add_compile_options(-fsanitize=${KIVSDU_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KIVSDU_SANITIZE})
endif()
