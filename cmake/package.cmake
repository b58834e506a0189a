# Packages of an installation: './dev package' makes them. An archive has everything except the
# symbols, which have an archive of their own; Debian packages are one for each component.
set(CPACK_PACKAGE_NAME kivsdu)
set(CPACK_PACKAGE_VENDOR "kivsdu maintainers")
set(CPACK_PACKAGE_CONTACT "kivsdu maintainers <maintainers@kivsdu.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES OFF)  # the build has moved the symbols into files of their own

string(TOLOWER ${CMAKE_SYSTEM_NAME} platform)
set(CPACK_PACKAGE_FILE_NAME kivsdu-${PROJECT_VERSION}-${platform}-${processor})
if(WIN32)
  string(APPEND CPACK_PACKAGE_FILE_NAME -${KIVSDU_RUNTIME})
endif()

set(CPACK_COMPONENTS_ALL runtime development symbols documentation)
if(TARGET kivsd)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/components.cmake)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)

if(NOT WIN32)
  include(packaging/debian/packages.cmake)
endif()
include(CPack)

# An archive: everything together, but the symbols apart.
foreach(component runtime development documentation tools)
  cpack_add_component(${component} GROUP all)
endforeach()
cpack_add_component(symbols GROUP symbols)
cpack_add_component_group(all)
cpack_add_component_group(symbols)
