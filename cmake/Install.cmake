# cmake --install: headers under include/orbperix, the library (DLL in bin on Windows), the
# stand-ins of the host libraries, and the CMake package OrbPerix with the imported target
# OrbPerix::OrbPerixProvider.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(NOT WIN32)
  set_target_properties(OrbPerixProvider PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

set(_orbperix_install_targets OrbPerixProvider)
if(NOT ORBPERIX_USE_HOST_LIBS)
  list(APPEND _orbperix_install_targets CorvusUtil TraceKit ScreenRelay)
  install(FILES
    ${PROJECT_SOURCE_DIR}/hostlibs/include/LogMessageLevel.h
    ${PROJECT_SOURCE_DIR}/hostlibs/include/Logger.h
    ${PROJECT_SOURCE_DIR}/hostlibs/include/QxLogger.h
    ${PROJECT_SOURCE_DIR}/hostlibs/include/CastSessionManager.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orbperix/host)
endif()

install(TARGETS ${_orbperix_install_targets} EXPORT OrbPerixTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/orbperix DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT OrbPerixTargets NAMESPACE OrbPerix:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrbPerix)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/OrbPerixConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OrbPerixConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrbPerix)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OrbPerixConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrbPerixConfig.cmake ${PROJECT_BINARY_DIR}/OrbPerixConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrbPerix)
# The Wireshark dissector for capture files (ORBPERIX_CAPTURE / orbperix_capture_start).
install(FILES ${PROJECT_SOURCE_DIR}/tools/capture/orbperix.lua
  DESTINATION ${CMAKE_INSTALL_DATADIR}/orbperix/wireshark)
