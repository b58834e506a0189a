# Builds the runtime that writes the counters of a DLL to a file when its process ends.
set(KIVSDU_PROFILE_SOURCES "" CACHE PATH
    "compiler-rt's folder in the sources of LLVM, for coverage on Windows (./dev coverage unpacks it)")

file(GLOB profile_sources ${KIVSDU_PROFILE_SOURCES}/lib/profile/InstrProfiling*.c*
     ${KIVSDU_PROFILE_SOURCES}/lib/profile/WindowsMMap.c)
if(NOT profile_sources)
  message(FATAL_ERROR "KIVSDU_PROFILE_SOURCES names no folder with lib/profile in it")
endif()
add_library(kiv_profile_runtime STATIC ${profile_sources})
target_include_directories(kiv_profile_runtime PRIVATE ${KIVSDU_PROFILE_SOURCES}/include)
target_compile_options(kiv_profile_runtime PRIVATE -w)
