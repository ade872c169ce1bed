# Installation layout and the Debian package.
#
#   bin/customscan                          the tool
#   lib/customscan/libCustomScan.so         the plug-in, as an agent loads it
#   lib/libCustomScanHost.so*               the host libraries
#   include/customscan/{sdk,base,config,trace}/*.h, CustomScanConstants.h, ResultCodes.h
#   lib/cmake/CustomScan/                   find_package(CustomScan) for SDK users
#   share/doc/customscan/                   README and docs
#   share/customscan/examples/              example scanners and batch requests
#
# Every RPATH is relative to $ORIGIN, so an installed tree works wherever it lies.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(CUSTOMSCAN_INSTALL_PLUGINDIR ${CMAKE_INSTALL_LIBDIR}/customscan)
set(CUSTOMSCAN_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/CustomScan)

file(RELATIVE_PATH _cs_bin_to_lib
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH _cs_plugin_to_lib
  ${CMAKE_INSTALL_PREFIX}/${CUSTOMSCAN_INSTALL_PLUGINDIR} ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR})

install(TARGETS customscan_host EXPORT CustomScanTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

set_target_properties(CustomScan PROPERTIES INSTALL_RPATH "\$ORIGIN/${_cs_plugin_to_lib}")
install(TARGETS CustomScan LIBRARY DESTINATION ${CUSTOMSCAN_INSTALL_PLUGINDIR})

if(TARGET customscan)
  set_target_properties(customscan PROPERTIES INSTALL_RPATH "\$ORIGIN/${_cs_bin_to_lib}")
  install(TARGETS customscan RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# The SDK: the host library's headers, laid out as the sources include them,
# and the plug-in's constants.
foreach(part sdk base config trace)
  file(GLOB _cs_headers ${PROJECT_SOURCE_DIR}/src/host/include/${part}/*.h
                        ${PROJECT_SOURCE_DIR}/src/host/extras/${part}/*.h)
  install(FILES ${_cs_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/customscan/${part})
endforeach()
install(FILES
  ${PROJECT_SOURCE_DIR}/src/plugins/CustomScanPlugin/CustomScanConstants.h
  ${PROJECT_SOURCE_DIR}/src/plugins/CustomScanPlugin/ResultCodes.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/customscan)

install(EXPORT CustomScanTargets NAMESPACE CustomScan:: DESTINATION ${CUSTOMSCAN_INSTALL_CMAKEDIR})
file(WRITE ${PROJECT_BINARY_DIR}/CustomScanConfig.cmake
  "# find_package(CustomScan): the host SDK library as CustomScan::customscan_host,\n"
  "# and CUSTOMSCAN_PLUGIN, the installed plug-in.\n"
  "include(\${CMAKE_CURRENT_LIST_DIR}/CustomScanTargets.cmake)\n"
  "get_filename_component(_cs_prefix \"\${CMAKE_CURRENT_LIST_DIR}/../../..\" ABSOLUTE)\n"
  "set(CUSTOMSCAN_PLUGIN \"\${_cs_prefix}/${CUSTOMSCAN_INSTALL_PLUGINDIR}/libCustomScan.so\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CustomScanConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/CustomScanConfig.cmake ${PROJECT_BINARY_DIR}/CustomScanConfigVersion.cmake
  DESTINATION ${CUSTOMSCAN_INSTALL_CMAKEDIR})

file(GLOB _cs_docs ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${_cs_docs} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/customscan)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CMAKE_INSTALL_DATADIR}/customscan/examples
  USE_SOURCE_PERMISSIONS)

# cpack -G DEB
set(CPACK_PACKAGE_NAME customscan)
set(CPACK_PACKAGE_VENDOR "CustomScan")
set(CPACK_PACKAGE_CONTACT "CustomScan maintainers <maintainers@customscan.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "CustomScan plug-in, its host SDK and the customscan command-line host")
set(CPACK_PACKAGE_DESCRIPTION "A plug-in that a host monitoring agent loads to answer expressions \
from custom scanner programs, the host SDK it is built against, and the customscan tool that evaluates \
expressions and checks MIF text.")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12)")

include(CPack)
