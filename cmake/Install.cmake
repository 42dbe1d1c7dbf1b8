include(CMakePackageConfigHelpers)

install(TARGETS roster EXPORT rosterTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET rosterctl)
  install(TARGETS rosterctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
# Beside the library, where it looks first, so that an installation can be moved as a whole.
set(resources_dir ${CMAKE_INSTALL_LIBDIR}/roster)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/roster)
install(EXPORT rosterTargets NAMESPACE roster:: DESTINATION ${package_dir})
configure_package_config_file(cmake/rosterConfig.cmake.in rosterConfig.cmake
  INSTALL_DESTINATION ${package_dir} PATH_VARS resources_dir)
write_basic_package_version_file(rosterConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/rosterConfig.cmake ${PROJECT_BINARY_DIR}/rosterConfigVersion.cmake
  DESTINATION ${package_dir})

# Relative to the file itself, so that an installation can be moved.
file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pc ${prefix_from_pc})
configure_file(cmake/roster.pc.in roster.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/roster.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
