# Installs the printers. gdb loads them with the library: from a file beside the library, if the
# user has put that folder on gdb's list of safe paths, or from the folder of a Debian package.
set(scripts ${CMAKE_INSTALL_DATADIR}/kivsdu/debuggers)
install(DIRECTORY debuggers/ DESTINATION ${scripts} COMPONENT development
        FILES_MATCHING PATTERN *.natvis PATTERN *.py PATTERN __pycache__ EXCLUDE)

if(NOT WIN32)
  file(RELATIVE_PATH KIV_SCRIPTS_FROM_LIBRARY /prefix/${CMAKE_INSTALL_LIBDIR} /prefix/${scripts})
  set(auto_load libkivsdu.so.${PROJECT_VERSION}-gdb.py)
  configure_file(debuggers/auto_load.py.in ${PROJECT_BINARY_DIR}/generated/${auto_load} @ONLY)
  set(folder ${CMAKE_INSTALL_LIBDIR})
  if(KIVSDU_DEBIAN)
    set(folder ${CMAKE_INSTALL_DATADIR}/gdb/auto-load/usr/${CMAKE_INSTALL_LIBDIR})
  endif()
  install(FILES ${PROJECT_BINARY_DIR}/generated/${auto_load} DESTINATION ${folder}
          COMPONENT development)
endif()
