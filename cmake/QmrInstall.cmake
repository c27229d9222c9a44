# The library for other programs: find_package(qmrimg) and pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS qmrimg EXPORT qmrimgTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(level ${QMR_LEVELS})
  # Beside the baseline, where the dynamic loader looks for what suits the processor.
  install(TARGETS qmrimg_${level} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/x86-64-${level}
    NAMELINK_SKIP)
endforeach()
install(EXPORT qmrimgTargets NAMESPACE qmrimg:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qmrimg)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qmrimgConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qmrimgConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qmrimg)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qmrimgConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qmrimgConfig.cmake ${PROJECT_BINARY_DIR}/qmrimgConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qmrimg)

configure_file(${PROJECT_SOURCE_DIR}/cmake/qmrimg.pc.in ${PROJECT_BINARY_DIR}/qmrimg.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qmrimg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Public headers only: kernels and other internals stay with the sources.
foreach(header ${QMR_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/qmrimg/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qmrimg/${folder})
endforeach()
