# Derives from the version: a 16-bit word, a banner of at most 100 characters, and a resource.
math(EXPR KIVSDU_VERSION_WORD "(${PROJECT_VERSION_MAJOR} << 8) | ${PROJECT_VERSION_MINOR}")
set(processor x64)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  set(processor arm64)
endif()
if(NOT WIN32)  # for which c_runtime.cmake sets it
  set(KIVSDU_RUNTIME glibc)
endif()
set(platform ${CMAKE_SYSTEM_NAME}-${processor}-${KIVSDU_RUNTIME})
set(KIVSDU_BANNER "kivsdu ${PROJECT_VERSION} ${platform} \
${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION} ${CMAKE_BUILD_TYPE}")

# Version and flavour, which programs read from the loaded library. The flavour is the C runtime.
set(KIVSDU_BUILD_TEXT "${PROJECT_VERSION} ${KIVSDU_RUNTIME}")
if(KIVSDU_CHECKED)
  string(APPEND KIVSDU_BUILD_TEXT " checked")
  string(APPEND KIVSDU_BANNER " checked")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/kivsdu_version.h.in
               ${PROJECT_BINARY_DIR}/generated/kivsdu_version.h @ONLY)

# The public version header lies in the source tree, because programs may compile against that. Only
# a new version changes it.
file(READ ${PROJECT_SOURCE_DIR}/cmake/version_header.h.in header)
string(CONFIGURE "${header}" header @ONLY)
set(public_header ${PROJECT_SOURCE_DIR}/include/kivsdu/version.h)
set(written "")
if(EXISTS ${public_header})
  file(READ ${public_header} written)
endif()
if(NOT written STREQUAL header)
  message(NOTICE "${public_header} is written anew: commit it with the new version")
  file(WRITE ${public_header} "${header}")
endif()

# Adds a VERSIONINFO resource to a DLL.
function(kiv_version_resource target description)
  set(FILE_DESCRIPTION "${description}")
  set(FILE_NAME ${target})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in
                 ${PROJECT_BINARY_DIR}/generated/${target}.rc @ONLY)
  target_sources(${target} PRIVATE ${PROJECT_BINARY_DIR}/generated/${target}.rc)
endfunction()
