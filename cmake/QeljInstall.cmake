# What is installed, in four components: runtime, development, tools (where the programs are made) and documentation.
include(CMakePackageConfigHelpers)

# An installed library finds libqelcore from its own place, wherever the tree is moved.
set_target_properties(qelj PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS qelj qelcore EXPORT qeljTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
foreach(cpu IN LISTS qelj_hwcaps_cpus)
  set_target_properties(qelj_${cpu} PROPERTIES INSTALL_RPATH "$ORIGIN/../..")
  install(TARGETS qelj_${cpu}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/${cpu} COMPONENT runtime NAMELINK_SKIP)
endforeach()

install(FILES include/qelj.h qelcore/qelcore.h qelcore/qelj_status.h qelcore/qelj_typical.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/qelj)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qeljConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qeljConfigVersion.cmake DESTINATION ${package} COMPONENT development)
install(EXPORT qeljTargets NAMESPACE qelj:: FILE qeljConfig.cmake DESTINATION ${package} COMPONENT development)

# For pkg-config, by way of the files' own place. Who links a static library needs what it needs.
set(qelj_pc_libraries "")
if(NOT qelj_shared)
  list(TRANSFORM OpenMP_CXX_LIB_NAMES PREPEND " -l" OUTPUT_VARIABLE runtime)
  string(CONCAT qelj_pc_libraries ${runtime} " -lm")
endif()
set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH qelj_pc_include ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(name qelj qelcore)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig} COMPONENT development)
endforeach()

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY examples/tiny examples/guides DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT documentation
  PATTERN CMakeLists.txt EXCLUDE)
