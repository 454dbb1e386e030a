# What `cmake --install` gives: the shared library, its headers, the command, and the two ways to find them.
include(CMakePackageConfigHelpers)

# The headers include each other from the root of the project, which is include/zuc once installed.
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/zuc)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/zuc)
install(TARGETS zuc EXPORT zucTargets DESTINATION ${CMAKE_INSTALL_LIBDIR} INCLUDES DESTINATION ${headers})
foreach(folder Components kraaudiofilterhost kramediatypes kracore ZuCore)
  install(DIRECTORY ${folder} DESTINATION ${headers}
          FILES_MATCHING PATTERN "*.h" PATTERN private EXCLUDE)
endforeach()

# The command finds its library wherever the two are moved together.
file(RELATIVE_PATH toLibrary /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(zuc_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${toLibrary}")
install(TARGETS zuc_cli DESTINATION ${CMAKE_INSTALL_BINDIR})

install(EXPORT zucTargets NAMESPACE zuc:: DESTINATION ${package})
configure_package_config_file(cmake/zucConfig.cmake.in zucConfig.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(zucConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zucConfig.cmake ${CMAKE_BINARY_DIR}/zucConfigVersion.cmake
        DESTINATION ${package})

file(RELATIVE_PATH toPrefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" toPrefix ${toPrefix})
configure_file(cmake/zuc.pc.in zuc.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zuc.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
