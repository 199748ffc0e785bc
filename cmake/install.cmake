include(CMakePackageConfigHelpers)

install(TARGETS qzdata_report EXPORT qzdata_reportTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT qzdata_reportTargets
  NAMESPACE qzdata_report::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qzdata_report)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/qzdata_reportConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/qzdata_reportConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qzdata_report)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/qzdata_reportConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qzdata_reportConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/qzdata_reportConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qzdata_report)

configure_file(${CMAKE_CURRENT_LIST_DIR}/qzdata_report.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/qzdata_report.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qzdata_report.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
