# The sources that this port lies in. A port in a registry fetches a release instead: vcpkg_from_git or its like.
get_filename_component(SOURCE_PATH "${CURRENT_PORT_DIR}/../../.." ABSOLUTE)

vcpkg_check_features(OUT_FEATURE_OPTIONS FEATURE_OPTIONS
  FEATURES
    tools QELJ_EXAMPLES
    tools QELJ_SELFTEST
)

# A shared library comes with all its images, and a static one is the image that runs everywhere, unless the triplet says
# otherwise: set(VCPKG_CMAKE_CONFIGURE_OPTIONS -DQELJ_CPU=x86-64-v3).
vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS
    -DQELJ_TESTS=OFF
    ${FEATURE_OPTIONS}
)
vcpkg_cmake_install()

vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/qelj)
# Both builds' headers are in one place.
foreach(name IN ITEMS qelj qelcore)
  set(file "${CURRENT_PACKAGES_DIR}/debug/lib/pkgconfig/${name}.pc")
  if(EXISTS "${file}")
    vcpkg_replace_string("${file}" [[${pcfiledir}/../../include]] [[${pcfiledir}/../../../include]])
  endif()
endforeach()
vcpkg_fixup_pkgconfig()

if("tools" IN_LIST FEATURES)
  vcpkg_copy_tools(TOOL_NAMES qelconv qelj-selftest AUTO_CLEAN)
endif()

file(REMOVE_RECURSE
  "${CURRENT_PACKAGES_DIR}/debug/include"
  "${CURRENT_PACKAGES_DIR}/debug/share"
  "${CURRENT_PACKAGES_DIR}/share/doc"
  "${CURRENT_PACKAGES_DIR}/share/man"
)
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
