# Installation layout, in three components that are also the three Debian
# packages (cpack, see docs/packaging.md):
#
#   runtime  lib/libCustomScanHost.so.N*               the host library
#            lib/customscan/libCustomScan.so           the plug-in, as an agent loads it
#   dev      lib/libCustomScanHost.so                  the link-time name
#            include/customscan/{sdk,base,config,trace}/*.h, CustomScanConstants.h,
#                                                      ResultCodes.h (both host include roots)
#            lib/cmake/CustomScan/                     find_package(CustomScan)
#            lib/pkgconfig/customscan-host.pc          pkg-config
#   tool     bin/customscan                            the tool
#            share/man/man1/customscan.1.gz, share/man/man5/customscan-mif.5.gz
#            share/bash-completion/completions/customscan, share/zsh/vendor-completions/_customscan
#            share/doc/customscan/                     README, LICENSE, NOTICE, the guides
#            share/customscan/examples/                example scanners, batch requests, a host program
#
# Every RPATH is relative to $ORIGIN, so an installed tree works wherever it
# lies. The packages drop them: /usr/lib is searched anyway.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(CUSTOMSCAN_INSTALL_PLUGINDIR ${CMAKE_INSTALL_LIBDIR}/customscan)
set(CUSTOMSCAN_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/CustomScan)
set(CUSTOMSCAN_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(CUSTOMSCAN_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/customscan)
set(CUSTOMSCAN_INSTALL_EXAMPLESDIR ${CMAKE_INSTALL_DATADIR}/customscan/examples)

# The Debian package names; the runtime package is named after the host
# library's soname, as Debian's library packaging asks.
get_target_property(_cs_soversion customscan_host SOVERSION)
set(CUSTOMSCAN_DEB_RUNTIME libcustomscanhost${_cs_soversion})
set(CUSTOMSCAN_DEB_DEV libcustomscanhost-dev)
set(CUSTOMSCAN_DEB_TOOL customscan)
set(CUSTOMSCAN_DEBIAN_REVISION 1 CACHE STRING "The Debian revision of the packages' version (project version-REVISION)")
set(CUSTOMSCAN_DEBIAN_VERSION ${PROJECT_VERSION}-${CUSTOMSCAN_DEBIAN_REVISION})

file(RELATIVE_PATH _cs_bin_to_lib
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH _cs_plugin_to_lib
  ${CMAKE_INSTALL_PREFIX}/${CUSTOMSCAN_INSTALL_PLUGINDIR} ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR})

install(TARGETS customscan_host customscan_host_extras EXPORT CustomScanTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)

set_target_properties(CustomScan PROPERTIES INSTALL_RPATH "\$ORIGIN/${_cs_plugin_to_lib}")
install(TARGETS CustomScan LIBRARY DESTINATION ${CUSTOMSCAN_INSTALL_PLUGINDIR} COMPONENT runtime NAMELINK_SKIP)

if(TARGET customscan)
  set_target_properties(customscan PROPERTIES INSTALL_RPATH "\$ORIGIN/${_cs_bin_to_lib}")
  install(TARGETS customscan RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
endif()

# The SDK: the headers of both host include roots (the contract a plug-in
# may use, and the extras a host program sets the host up with), laid out as
# the sources include them, and the plug-in's constants.
foreach(part sdk base config trace)
  file(GLOB _cs_headers ${PROJECT_SOURCE_DIR}/src/host/include/${part}/*.h
                        ${PROJECT_SOURCE_DIR}/src/host/extras/${part}/*.h)
  install(FILES ${_cs_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/customscan/${part} COMPONENT dev)
endforeach()
install(FILES
  ${PROJECT_SOURCE_DIR}/src/plugins/CustomScanPlugin/CustomScanConstants.h
  ${PROJECT_SOURCE_DIR}/src/plugins/CustomScanPlugin/ResultCodes.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/customscan COMPONENT dev)

install(EXPORT CustomScanTargets NAMESPACE CustomScan:: DESTINATION ${CUSTOMSCAN_INSTALL_CMAKEDIR} COMPONENT dev)
file(WRITE ${PROJECT_BINARY_DIR}/CustomScanConfig.cmake
  "# find_package(CustomScan): the host library as CustomScan::customscan_host\n"
  "# (with the headers of both include roots), and CUSTOMSCAN_PLUGIN, the\n"
  "# installed plug-in.\n"
  "include(\${CMAKE_CURRENT_LIST_DIR}/CustomScanTargets.cmake)\n"
  "get_filename_component(_cs_prefix \"\${CMAKE_CURRENT_LIST_DIR}/../../..\" ABSOLUTE)\n"
  "set(CUSTOMSCAN_PLUGIN \"\${_cs_prefix}/${CUSTOMSCAN_INSTALL_PLUGINDIR}/libCustomScan.so\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CustomScanConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/CustomScanConfig.cmake ${PROJECT_BINARY_DIR}/CustomScanConfigVersion.cmake
  DESTINATION ${CUSTOMSCAN_INSTALL_CMAKEDIR} COMPONENT dev)

file(GLOB _cs_docs ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/NOTICE ${_cs_docs}
  DESTINATION ${CUSTOMSCAN_INSTALL_DOCDIR} COMPONENT tool)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CUSTOMSCAN_INSTALL_EXAMPLESDIR}
  USE_SOURCE_PERMISSIONS COMPONENT tool)

# Manual pages, completion, pkg-config and the files only the Debian packages carry.
add_subdirectory(${PROJECT_SOURCE_DIR}/packaging ${PROJECT_BINARY_DIR}/packaging)

# ------------------------------------------------------------- cpack -G DEB
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME customscan)
set(CPACK_PACKAGE_VENDOR "The CustomScan developers")
set(CPACK_PACKAGE_CONTACT "The CustomScan developers <maintainers@customscan.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The install scripts see the final prefix (/usr) and write below DESTDIR,
# so that what they write (customscan-host.pc) names the installed paths.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CPACK_PACKAGING_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CHECKSUM SHA256)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
if(TARGET customscan)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOL_DEPENDS runtime)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CUSTOMSCAN_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${CPACK_PACKAGE_CONTACT}")
# Depends on the C and C++ runtimes from dpkg-shlibdeps. Our own host library
# is found in the build tree but has no shlibs entry there yet: the
# inter-package dependencies below cover it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${CUSTOMSCAN_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# dpkg runs ldconfig once for all packages through this trigger. (cpack 3.25
# also writes postinst and postrm scripts that call ldconfig; harmless.)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/runtime/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "plug-in that answers a monitoring agent from custom scanners
The CustomScan plug-in is loaded by a host monitoring agent into its own
process. Policy authors put programs (custom scanners) into one configured
directory; the plug-in's five operands run them and answer from their output,
either as plain text or as tables of the MIF text they write.
.
This package holds the plug-in (/usr/lib/customscan/libCustomScan.so) and the
host library it is built against, which a host program links so that it and
the plug-in share one configuration and one trace.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${CUSTOMSCAN_DEB_DEV})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "development files of the CustomScan host library
The CustomScan plug-in is loaded by a host monitoring agent into its own
process and answers it from custom scanner programs.
.
This package holds what a host program is built with: the headers of the
host library (the plug-in SDK, strings, files and processes, configuration,
trace, and the host's own settings and trace sinks), the plug-in's result
codes and constants, the CMake package files for find_package(CustomScan)
and the pkg-config file customscan-host.pc.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ${CUSTOMSCAN_DEB_TOOL})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "command-line host of the CustomScan plug-in
The customscan tool loads the CustomScan plug-in exactly as a host monitoring
agent does and evaluates expressions with it, one at a time or from a stream
of JSON Lines requests. Its mif subcommands show the author of a custom
scanner what the plug-in makes of the MIF text the scanner writes: messages
with line numbers, the tables and the element tree.
.
This package also holds the manual pages, shell completion, the guides
(including how to write a host program) and example scanners.")

include(CPack)
