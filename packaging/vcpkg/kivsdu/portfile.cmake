# Builds the source tree that this port lies in. Install it as an overlay:
#
#   vcpkg install kivsdu --overlay-ports=packaging/vcpkg
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

# On Windows there is only a DLL. On Linux the installation has both forms of the library, as
# kivsdu::kivsdu and kivsdu::kivsdu_static.
if(VCPKG_TARGET_IS_WINDOWS)
  vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)
else()
  set(VCPKG_POLICY_DLLS_IN_STATIC_LIBRARY enabled)
endif()

vcpkg_find_acquire_program(PYTHON3)
vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS
    -DKIVSDU_TESTS=OFF
    -DKIVSDU_EXAMPLES=OFF
    -DKIVSDU_TOOLS=OFF
    "-DPython3_EXECUTABLE=${PYTHON3}"
)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/kivsdu)
vcpkg_fixup_pkgconfig()
vcpkg_copy_pdbs()

file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share"
     "${CURRENT_PACKAGES_DIR}/share/doc")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
