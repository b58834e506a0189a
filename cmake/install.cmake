# What 'cmake --install' copies, by component. The folder may be moved afterwards.
#
#   runtime        the shared libraries
#   development    headers, import libraries, static libraries, files for CMake and pkg-config,
#                  printers for debuggers
#   symbols        debug symbols
#   documentation  documents, examples, licence
#   tools          the command kivsd
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(KIV_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/kivsdu)

# kiv_install(TARGET ...): installs libraries, and lists them for find_package(kivsdu)
function(kiv_install)
  install(TARGETS ${ARGN} EXPORT kivsduTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
            NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()

# ---- Libraries ----

set(shared kivsdu)
if(NOT KIVSDU_KIVUTLU_LIBRARY)
  list(APPEND shared kivutlu)
endif()
kiv_install(${shared})
if(TARGET kivsdu_static AND NOT WIN32)  # there it is for tests only
  kiv_install(kivsdu_static)
endif()
if(TARGET kivsdu_status)
  set_target_properties(kivsdu_status PROPERTIES EXPORT_NAME status)
  set_target_properties(kivsdu_cpp PROPERTIES EXPORT_NAME cpp)
  kiv_install(kivsdu_status kivsdu_cpp)
endif()
if(TARGET kivsd)
  if(KIVSDU_DEBIAN)
    target_link_options(kivsd PRIVATE -s)
  elseif(NOT WIN32)
    set_target_properties(kivsd PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  endif()
  install(TARGETS kivsd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()

set(bin ${PROJECT_BINARY_DIR}/bin)
foreach(library IN LISTS shared)
  if(WIN32)
    install(FILES ${bin}/${library}.lib DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT development OPTIONAL)
    install(FILES ${bin}/${library}.pdb DESTINATION ${CMAKE_INSTALL_BINDIR}
            COMPONENT symbols EXCLUDE_FROM_ALL OPTIONAL)
  elseif(NOT KIVSDU_DEBIAN)
    install(FILES ${bin}/lib${library}.debug DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT symbols EXCLUDE_FROM_ALL OPTIONAL)
  endif()
endforeach()

# ---- Headers, CMake, pkg-config ----

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development)

install(EXPORT kivsduTargets NAMESPACE kivsdu:: DESTINATION ${KIV_CMAKE_FOLDER}
        COMPONENT development)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/packaging/kivsduConfig.cmake.in
  ${PROJECT_BINARY_DIR}/generated/kivsduConfig.cmake
  INSTALL_DESTINATION ${KIV_CMAKE_FOLDER} PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/generated/kivsduConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/generated/kivsduConfig.cmake
              ${PROJECT_BINARY_DIR}/generated/kivsduConfigVersion.cmake
        DESTINATION ${KIV_CMAKE_FOLDER} COMPONENT development)

# The path from a pkg-config file to the folder that everything is installed into.
file(RELATIVE_PATH KIV_PREFIX_FROM_PC /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(name kivsdu kivsdu-status kivsdu-cpp)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/${name}.pc.in
                 ${PROJECT_BINARY_DIR}/generated/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/generated/${name}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

# ---- Debuggers ----

include(debuggers/install.cmake)

# ---- Documents and examples ----

install(FILES README.md CHANGELOG.md LICENSE SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
        PATTERN tests EXCLUDE PATTERN CMakeLists.txt EXCLUDE)

include(cmake/package.cmake)
