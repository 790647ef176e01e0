# What `cmake --install` puts in the prefix: the shared library with its SONAME links, the
# public headers, the `vexor` program, a CMake package giving vexor::vexor, and vexor.pc.
# The static archive and the object library are for the tests only and are not installed.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VEXOR_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vexor)

install(TARGETS vexor EXPORT vexorTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vexor
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

if(TARGET vexor_cli)
  # The program finds the library next to it in the prefix, wherever the prefix is moved.
  file(RELATIVE_PATH cli_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(vexor_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${cli_to_lib}")
  install(TARGETS vexor_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT vexorTargets
  NAMESPACE vexor::
  FILE vexorTargets.cmake
  DESTINATION ${VEXOR_CMAKE_PACKAGE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vexorConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vexorConfig.cmake
  INSTALL_DESTINATION ${VEXOR_CMAKE_PACKAGE_DIR})
# The C interface only grows within a major version (see include/vexor/version.h).
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vexorConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/vexorConfig.cmake
  ${PROJECT_BINARY_DIR}/vexorConfigVersion.cmake
  ${CMAKE_CURRENT_LIST_DIR}/FindVexorOpenSubdiv.cmake
  DESTINATION ${VEXOR_CMAKE_PACKAGE_DIR})

# vexor.pc names the prefix chosen at install time (`cmake --install --prefix` may differ from
# the configured one), so the file is finished by the install script. The first pass fills in
# everything but the prefix.
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    set(VEXOR_PC_${kind} "${CMAKE_INSTALL_${kind}}")
  else()
    set(VEXOR_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(pc_destination "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
else()
  set(pc_destination "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endif()
set(VEXOR_PC_PREFIX "@VEXOR_PC_PREFIX@")
configure_file(${CMAKE_CURRENT_LIST_DIR}/vexor.pc.in ${PROJECT_BINARY_DIR}/vexor.pc.in @ONLY)
install(CODE "
  set(VEXOR_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${PROJECT_BINARY_DIR}/vexor.pc.in\" \"${PROJECT_BINARY_DIR}/pkgconfig/vexor.pc\" @ONLY)
  file(INSTALL DESTINATION \"${pc_destination}\"
    TYPE FILE FILES \"${PROJECT_BINARY_DIR}/pkgconfig/vexor.pc\")
")
