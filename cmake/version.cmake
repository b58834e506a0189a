# Derives from the version: a 16-bit word, a banner of at most 100 characters, and a resource.
math(EXPR KIVSDU_VERSION_WORD "(${PROJECT_VERSION_MAJOR} << 8) | ${PROJECT_VERSION_MINOR}")
set(processor x64)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  set(processor arm64)
endif()
set(flavour ${CMAKE_SYSTEM_NAME}-${processor})
if(WIN32)
  string(APPEND flavour "-${KIVSDU_RUNTIME}")
endif()
set(KIVSDU_BANNER "kivsdu ${PROJECT_VERSION} ${flavour} \
${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION} ${CMAKE_BUILD_TYPE}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kivsdu_version.h.in
               ${PROJECT_BINARY_DIR}/generated/kivsdu_version.h @ONLY)

# Adds a VERSIONINFO resource to a DLL.
function(kiv_version_resource target description)
  set(FILE_DESCRIPTION "${description}")
  set(FILE_NAME ${target})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in
                 ${PROJECT_BINARY_DIR}/generated/${target}.rc @ONLY)
  target_sources(${target} PRIVATE ${PROJECT_BINARY_DIR}/generated/${target}.rc)
endfunction()
