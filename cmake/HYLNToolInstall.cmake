# Install rules: the library with its headers, CMake package and pkg-config file
# (component Development), and the tools with the simulated runtime (component Tools).
include(CMakePackageConfigHelpers)

set(HYLN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/HYLNTool)

install(TARGETS HYLNTool EXPORT HYLNToolTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
    NAMELINK_COMPONENT Development
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/HYLNTool COMPONENT Development)
install(EXPORT HYLNToolTargets NAMESPACE HYLNTool:: DESTINATION ${HYLN_CMAKE_DIR}
  COMPONENT Development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/HYLNToolConfig.cmake.in
  ${PROJECT_BINARY_DIR}/HYLNToolConfig.cmake INSTALL_DESTINATION ${HYLN_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/HYLNToolConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/HYLNToolConfig.cmake ${PROJECT_BINARY_DIR}/HYLNToolConfigVersion.cmake
  DESTINATION ${HYLN_CMAKE_DIR} COMPONENT Development)

# The pkg-config file finds its prefix from where it lies, so `cmake --install --prefix`
# may choose the prefix after configuring.
file(RELATIVE_PATH HYLN_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/HYLNTool.pc.in ${PROJECT_BINARY_DIR}/HYLNTool.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/HYLNTool.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

if(HYLN_BUILD_TOOLS)
  install(TARGETS hyln hyln-seed RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Tools)
  install(TARGETS notes
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${HYLN_RUNTIME_SUBDIR}/notes/latest/linux COMPONENT Tools)
endif()
