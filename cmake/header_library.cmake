# kiv_header_library(NAME HEADER PACKAGE): an interface library for a header-only library of the
# build machine that one of our programs uses, such as CLI/CLI.hpp of the package libcli11-dev. The
# headers are copied: a cross build must not see what else lies in their folder.
function(kiv_header_library name header package)
  if(TARGET ${name})
    return()
  endif()
  string(TOUPPER ${name}_FOLDER folder)
  find_path(${folder} ${header} NO_CMAKE_FIND_ROOT_PATH DOC "Folder that has ${header}")
  if(NOT ${folder})
    message(FATAL_ERROR "${header} is missing: install ${package}, or set ${folder}, or leave out "
                        "what needs it with -DKIVSDU_EXAMPLES=OFF -DKIVSDU_TOOLS=OFF")
  endif()
  set(copy ${PROJECT_BINARY_DIR}/headers/${name})
  get_filename_component(subfolder ${header} DIRECTORY)
  file(COPY ${${folder}}/${subfolder} DESTINATION ${copy})
  add_library(${name} INTERFACE)
  target_include_directories(${name} SYSTEM INTERFACE ${copy})
endfunction()
