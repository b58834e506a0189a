# What 'cmake --install' copies: the libraries, their headers and, on Linux, a pkg-config file. The
# folder may be moved afterwards.
include(GNUInstallDirs)

set(installed kivsdu)
if(NOT KIVSDU_KIVUTLU_LIBRARY)
  list(APPEND installed kivutlu)
endif()
if(NOT WIN32)
  list(APPEND installed kivsdu_static)
endif()
install(TARGETS ${installed})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

if(NOT WIN32)
  # The path from the pkg-config file to the folder that everything is installed into.
  file(RELATIVE_PATH KIV_PREFIX_FROM_PC /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kivsdu.pc.in
                 ${PROJECT_BINARY_DIR}/generated/kivsdu.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/generated/kivsdu.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
