# CPack reads this for each kind of package: an archive joins the components of a group, Debian has
# a package for each component.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_COMPONENTS_GROUPING IGNORE)
else()
  set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  set(CPACK_ARCHIVE_ALL_FILE_NAME ${CPACK_PACKAGE_FILE_NAME})
  set(CPACK_ARCHIVE_SYMBOLS_FILE_NAME ${CPACK_PACKAGE_FILE_NAME}-symbols)
endif()
