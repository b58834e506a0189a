# Debian's packages: libkivsdu0, libkivsdu-dev, libkivsdu0-dbgsym, libkivsdu-doc and kivsd.
set(soname libkivsdu${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/bin)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(same_version "(= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${soname})
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "The shared libraries that programs need when they run.")
# The loader's list of libraries is made anew, and packages that link the library find here which
# package has it.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/triggers ${PROJECT_BINARY_DIR}/generated/shlibs)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/generated/shlibs CONTENT
     "libkivsdu ${PROJECT_VERSION_MAJOR} ${soname} (>= ${PROJECT_VERSION})\n")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkivsdu-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${soname} ${same_version}, libc6-dev, liburing-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS libkivsdu-doc)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Headers, static libraries, and files for CMake and pkg-config.")

set(CPACK_DEBIAN_SYMBOLS_PACKAGE_NAME ${soname}-dbgsym)
set(CPACK_DEBIAN_SYMBOLS_PACKAGE_SECTION debug)
set(CPACK_DEBIAN_SYMBOLS_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_SYMBOLS_PACKAGE_DEPENDS "${soname} ${same_version}")
set(CPACK_COMPONENT_SYMBOLS_DESCRIPTION
    "Debuggers find them by the build identifiers of the libraries.")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME libkivsdu-doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION
    "Guides, and the sources of small programs and of an example server.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kivsd)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${soname} ${same_version}")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "Explains statuses, checks memory configurations, and shows a host's memory.")

if(NOT KIVSDU_DEBIAN)
  return()
endif()

# ---- Files that only Debian's packages have ----

find_program(KIV_GZIP gzip REQUIRED)
set(changelog ${PROJECT_BINARY_DIR}/generated/changelog.gz)
file(STRINGS packaging/debian/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^kivsdu \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog has no entry for version ${PROJECT_VERSION}")
endif()
execute_process(COMMAND ${KIV_GZIP} -9 -n -c ${PROJECT_SOURCE_DIR}/packaging/debian/changelog
                OUTPUT_FILE ${changelog} COMMAND_ERROR_IS_FATAL ANY)
install(FILES packaging/debian/libkivsdu0.overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${soname}
        COMPONENT runtime EXCLUDE_FROM_ALL)
foreach(component RUNTIME DEVELOPMENT SYMBOLS DOCUMENTATION TOOLS)
  string(TOLOWER ${component} name)
  set(folder ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${folder} RENAME copyright
          COMPONENT ${name} EXCLUDE_FROM_ALL)
  install(FILES ${changelog} DESTINATION ${folder} COMPONENT ${name} EXCLUDE_FROM_ALL)
endforeach()

# The manual page says what the command's own help says.
if(TARGET kivsd)
  find_program(KIV_HELP2MAN help2man REQUIRED)
  set(manual ${PROJECT_BINARY_DIR}/generated/kivsd.1.gz)
  set(make_page ${PROJECT_SOURCE_DIR}/packaging/debian/make-manual-page)
  add_custom_command(OUTPUT ${manual}
    COMMAND ${make_page} $<TARGET_FILE:kivsd> | ${KIV_GZIP} -9 -n > ${manual}
    DEPENDS kivsd ${make_page} VERBATIM COMMENT "Making the manual page of kivsd")
  add_custom_target(kivsd_manual ALL DEPENDS ${manual})
  install(FILES ${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools EXCLUDE_FROM_ALL)
endif()

# Debuggers look for symbols by the library's build identifier.
foreach(library IN LISTS shared)
  install(CODE "
    execute_process(COMMAND ${CMAKE_READELF} -n ${bin}/lib${library}.so OUTPUT_VARIABLE notes
                    COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX REPLACE \".*Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+).*\" \"\\\\1/\\\\2\" id \"\${notes}\")
    get_filename_component(folder lib/debug/.build-id/\${id} DIRECTORY)
    get_filename_component(name \${id} NAME)
    file(INSTALL ${bin}/lib${library}.debug RENAME \${name}.debug
         DESTINATION \${CMAKE_INSTALL_PREFIX}/\${folder})
    " COMPONENT symbols EXCLUDE_FROM_ALL)
endforeach()
