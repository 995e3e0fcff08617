# What is installed where, and how other projects find it again. Everything is relocatable: no path of this machine is
# written into any installed file.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/analytics)

# Headers only: the layer's sources stand beside its headers. What is under own/ is the library's alone, what is under
# platform/ a system's.
install(DIRECTORY inc/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
        FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp" PATTERN "own" EXCLUDE PATTERN "platform" EXCLUDE)
install(TARGETS analytics EXPORT analytics-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(EXPORT analytics-targets NAMESPACE analytics:: DESTINATION ${package_dir} COMPONENT dev)

# The static library brings its dependencies along, so it has an export of its own: who does not ask for the component
# "static" needs neither libcurl, OpenSSL nor zlib to be installed for development.
set(pc_libs_private "")
if(ANALYTICS_STATIC)
  install(TARGETS analytics_static EXPORT analytics-static-targets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
  install(EXPORT analytics-static-targets NAMESPACE analytics:: DESTINATION ${package_dir} COMPONENT dev)
  # Not Requires.private: that would hand on what libcurl itself was built with, which a system with a shared libcurl
  # does not have.
  set(pc_libs_private "-lcurl -lssl -lcrypto -lz -lstdc++ -lm -pthread")
endif()

configure_package_config_file(cmake/analytics-config.cmake.in ${PROJECT_BINARY_DIR}/analytics-config.cmake
                              INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/analytics-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/analytics-config.cmake ${PROJECT_BINARY_DIR}/analytics-config-version.cmake
        DESTINATION ${package_dir} COMPONENT dev)

file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(cmake/analytics.pc.in ${PROJECT_BINARY_DIR}/analytics.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/analytics.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# The documents lie as they do here, so that their links hold. Where a link leads to a header it is turned to where that is
# installed; where it leads to what is not installed, its words stay.
file(RELATIVE_PATH include_from_documents /${CMAKE_INSTALL_DOCDIR} /${CMAKE_INSTALL_INCLUDEDIR})
file(GLOB documents CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} *.md docs/*.md)
foreach(document ${documents})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${document})
  file(READ ${document} text)
  string(REGEX REPLACE "\\[([^]]*)\\]\\((\\.\\./)?(sdk/|tools/|inc/[^)]*(own|platform)/)[^)]*\\)" "\\1" text "${text}")
  string(REGEX REPLACE "\\]\\(((\\.\\./)?)inc/" "](\\1${include_from_documents}/" text "${text}")
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/documents/${document} CONTENT "${text}" @ONLY)
  get_filename_component(folder ${document} DIRECTORY)
  set(component dev)
  if(document STREQUAL "NOTICE.md")
    set(component runtime)
  endif()
  install(FILES ${PROJECT_BINARY_DIR}/documents/${document} DESTINATION ${CMAKE_INSTALL_DOCDIR}/${folder}
          COMPONENT ${component})
endforeach()
install(FILES docs/collector.png DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT dev)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev PATTERN CMakeLists.txt EXCLUDE)

# --- Debian packages: `cpack -G DEB`, or ./dev package ---------------------------------------------------------------
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_NAME analytics)
set(CPACK_PACKAGE_VENDOR "the analytics developers")
set(CPACK_PACKAGE_CONTACT "the analytics developers <analytics@localhost>")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# What links the library then depends on its package, of this version or a later one of the same name.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libanalytics${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "event analytics for desktop applications (shared library)")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libanalytics-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libanalytics${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "event analytics for desktop applications (headers, package files)")
if(ANALYTICS_STATIC)
  string(APPEND CPACK_DEBIAN_DEV_PACKAGE_DEPENDS ", libcurl4-openssl-dev, libssl-dev, zlib1g-dev")
endif()
if(ANALYTICS_CLI)
  list(APPEND CPACK_COMPONENTS_ALL tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME analytics-tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libanalytics${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
  set(CPACK_COMPONENT_TOOLS_DESCRIPTION "event analytics for desktop applications (the analytics command)")
endif()
if(ANALYTICS_COLLECTOR)
  list(APPEND CPACK_COMPONENTS_ALL collector)
  set(CPACK_DEBIAN_COLLECTOR_PACKAGE_NAME analytics-collector)
  set(CPACK_DEBIAN_COLLECTOR_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_COLLECTOR_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_COLLECTOR_PACKAGE_DEPENDS "libanalytics${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
  file(WRITE ${PROJECT_BINARY_DIR}/conffiles "/etc/analytics-collector.conf\n")
  set(CPACK_DEBIAN_COLLECTOR_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/conffiles)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
  set(CPACK_COMPONENT_COLLECTOR_DESCRIPTION "event analytics for desktop applications (the receiving server)")
endif()
include(CPack)
