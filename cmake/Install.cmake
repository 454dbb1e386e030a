# What `cmake --install` gives: the shared library, its headers, the command, and the two ways to find them.
include(CMakePackageConfigHelpers)

# The headers include each other from the root of the project, which is include/zuc once installed.
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/zuc)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/zuc)
install(TARGETS zuc EXPORT zucTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        INCLUDES DESTINATION ${headers})
foreach(folder Components kraaudiofilterhost kramediatypes kracore ZuCore)
  install(DIRECTORY ${folder} DESTINATION ${headers} COMPONENT development
          FILES_MATCHING PATTERN "*.h" PATTERN private EXCLUDE)
endforeach()

# The command finds its library wherever the two are moved together.
file(RELATIVE_PATH toLibrary /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(zuc_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${toLibrary}")
install(TARGETS zuc_cli DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command)

# Hosts look for bundles in lib/lv2, whatever the machine calls its libraries' folder.
if(TARGET zuc_lv2)
  set(ZUC_LV2_DIR lib/lv2 CACHE STRING "Where the LV2 bundles are installed, below the prefix")
  file(RELATIVE_PATH toLibrary /${ZUC_LV2_DIR}/zuc.lv2 /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(zuc_lv2 PROPERTIES INSTALL_RPATH "$ORIGIN/${toLibrary}")
  install(TARGETS zuc_lv2 LIBRARY DESTINATION ${ZUC_LV2_DIR}/zuc.lv2 COMPONENT lv2)
  install(DIRECTORY ${CMAKE_BINARY_DIR}/lv2/ DESTINATION ${ZUC_LV2_DIR} COMPONENT lv2 FILES_MATCHING PATTERN "*.ttl")
endif()

install(EXPORT zucTargets NAMESPACE zuc:: DESTINATION ${package} COMPONENT development)
configure_package_config_file(cmake/zucConfig.cmake.in zucConfig.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(zucConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zucConfig.cmake ${CMAKE_BINARY_DIR}/zucConfigVersion.cmake
        DESTINATION ${package} COMPONENT development)

file(RELATIVE_PATH toPrefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" toPrefix ${toPrefix})
configure_file(cmake/zuc.pc.in zuc.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zuc.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
