# Generates the list of statuses in status.h, for status_test and status_text_test.
set(header ${PROJECT_SOURCE_DIR}/include/kivsdu/status.h)
file(STRINGS ${header} lines REGEX "^#define KIV_ST_")
set(names "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^#define (KIV_ST_[A-Z0-9_]+) .*" "    {\"\\1\", \\1},\n" name "${line}")
  string(APPEND names "${name}")
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/status_names.h CONTENT
"// Made by CMake from status.h.
const std::map<std::string, uint32_t> kHeaderStatuses = {
@names@};
" @ONLY)
