# What `cmake --install` lays down: the libraries, the public headers, the tool, a CMake package and a pkg-config file. All
# paths in the installed files are relative to where they lie, so a prefix can be moved.
include(CMakePackageConfigHelpers)

install(TARGETS vexakrn EXPORT vexakrn-targets
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(DIRECTORY "${CMAKE_SOURCE_DIR}/include/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
install(FILES "${CMAKE_SOURCE_DIR}/LICENSE" "${CMAKE_SOURCE_DIR}/README.md" DESTINATION "${CMAKE_INSTALL_DOCDIR}")

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/vexakrn")
install(EXPORT vexakrn-targets NAMESPACE vexakrn:: DESTINATION "${package_dir}")
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/vexakrn-config.cmake.in"
    "${CMAKE_CURRENT_BINARY_DIR}/vexakrn-config.cmake" INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/vexakrn-config-version.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/vexakrn-config.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/vexakrn-config-version.cmake"
    DESTINATION "${package_dir}")

file(RELATIVE_PATH pc_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/vexakrn.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/vexakrn.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vexakrn.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

if(TARGET vexa)
  set_target_properties(vexa PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS vexa RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()
