# The lists with which contract_test compares the DLL: the exports of kivsdu.def, the exports that
# share a body there, and the functions that the public headers declare.
file(STRINGS ${PROJECT_SOURCE_DIR}/sd/kivsdu.def lines REGEX "^  [A-Za-z]")
set(exports "")
set(shared "")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^  ([A-Za-z0-9_]+)( = ([A-Za-z0-9_]+))?( DATA)?$" matched "${line}")
  if(NOT matched)
    message(FATAL_ERROR "kivsdu.def: cannot read '${line}'")
  endif()
  string(APPEND exports "    \"${CMAKE_MATCH_1}\",\n")
  if(CMAKE_MATCH_3)
    string(APPEND shared "    {\"${CMAKE_MATCH_1}\", \"${CMAKE_MATCH_3}\"},\n")
  endif()
endforeach()

file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/kivsdu/*.h)
set(declared "")
foreach(header IN LISTS headers)
  file(READ ${header} text)
  # A variable's declaration ends with a semicolon, at which CMake would split the list. Replace the
  # semicolon by a bracket, like that of a function.
  string(REGEX REPLACE "(\nKIVSDU_API [^(;]+);" "\\1(" text "${text}")
  string(REGEX MATCHALL "\nKIVSDU_API [^(]+\\(" declarations "${text}")
  foreach(declaration IN LISTS declarations)
    string(REGEX REPLACE ".*[ *]([A-Za-z0-9_]+)\\($" "    \"\\1\",\n" name "${declaration}")
    string(APPEND declared "${name}")
  endforeach()
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${PROJECT_SOURCE_DIR}/sd/kivsdu.def ${headers})

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/contract_lists.h CONTENT
"// Made by CMake from kivsdu.def and the public headers.
const std::vector<std::string> kListedExports = {
@exports@};
const std::vector<std::string> kDeclaredFunctions = {
@declared@};
const std::vector<SharedEntry> kSharedEntries = {
@shared@};
" @ONLY)
