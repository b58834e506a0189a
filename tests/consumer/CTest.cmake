# Adds consumer_test: builds consumers against the installed library.
if(KIV_INSTRUMENTED OR CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  return()
endif()
find_program(KIV_PKG_CONFIG pkg-config REQUIRED)
set(toolchain "")
if(CMAKE_TOOLCHAIN_FILE)
  get_filename_component(toolchain ${CMAKE_TOOLCHAIN_FILE} ABSOLUTE BASE_DIR ${PROJECT_SOURCE_DIR})
endif()
# For Windows pkg-config goes with GCC, whose linker takes the other import library.
set(pc_compiler ${CMAKE_C_COMPILER})
if(WIN32)
  find_program(KIV_MINGW_GCC x86_64-w64-mingw32-gcc-posix REQUIRED)
  set(pc_compiler ${KIV_MINGW_GCC})
endif()
add_test(NAME consumer_test COMMAND ${CMAKE_COMMAND}
  -DBUILD=${PROJECT_BINARY_DIR} -DSOURCE=${CMAKE_CURRENT_LIST_DIR} -DGENERATOR=${CMAKE_GENERATOR}
  -DC_COMPILER=${CMAKE_C_COMPILER} -DCXX_COMPILER=${CMAKE_CXX_COMPILER}
  -DTOOLCHAIN=${toolchain} -DPKG_CONFIG=${KIV_PKG_CONFIG}
  -DPC_COMPILER=${pc_compiler}
  "-DRUN=${CMAKE_CROSSCOMPILING_EMULATOR}" -DLLD_LINK=${KIV_LLD_LINK}
  -P ${CMAKE_CURRENT_LIST_DIR}/consumer_test.cmake)
set_tests_properties(consumer_test PROPERTIES TIMEOUT 180 LABELS contract)
