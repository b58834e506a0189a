# Generates the list of the numeric constants in the public headers, except statuses and versions,
# for constants_test.
file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/kivsdu/*.h)
set(names "")
foreach(header IN LISTS headers)
  if(header MATCHES "/(status|version)\\.h$")
    continue()
  endif()
  file(STRINGS ${header} lines REGEX "^#define (KIV|AD)_[A-Z0-9_]+ +[(]?-?[0-9]")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^#define ([A-Z0-9_]+) .*" "    \"\\1\",\n" name "${line}")
    string(APPEND names "${name}")
  endforeach()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
endforeach()

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/constant_names.h CONTENT
"// Made by CMake from the public headers.
const std::vector<std::string> kHeaderConstants = {
@names@};
" @ONLY)
