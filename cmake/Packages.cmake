# Debian packages of the components: cmake --preset package && cmake --build --preset package &&
# cpack --preset package. Equal sources give equal bytes under umask 022, whatever the folder and the day.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zebulib2)
set(CPACK_PACKAGE_VENDOR "ZEBULib2 developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_CONTACT "ZEBULib2 developers <dev@zebulib2.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_COMPONENTS_ALL runtime development config python)
if(TARGET zebu2)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(TARGET zebu2-forward)
  list(APPEND CPACK_COMPONENTS_ALL forward)
endif()
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/PackageDate.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/PrepareStage.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/FinishPackages.cmake)
set(CPACK_ZEBU_SOURCE ${PROJECT_SOURCE_DIR})
# cpack --config CPackSourceConfig.cmake: what is in the repository, no build folder.
set(CPACK_SOURCE_GENERATOR TXZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME zebulib2-${PROJECT_VERSION})
set(CPACK_SOURCE_IGNORE_FILES "/\\\\.git/" "${PROJECT_SOURCE_DIR}/build[^/]*/" compile_commands.json "${PROJECT_BINARY_DIR}/")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${PROJECT_HOMEPAGE_URL})
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)  # which strips; -dbgsym has what is taken out
set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_FORWARD_DEBUGINFO_PACKAGE ON)
# Read by FinishPackages.cmake: this version of cpack has no variable for it.
set(CPACK_ZEBU_MULTIARCH libzebulib2-2=same libzebulib2-dev=same zebu2=foreign zebulib2-config=foreign zebu2-forward=foreign
  python3-zebulib2=foreign)

set(ZEBU_DEBIAN_VERSION ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzebulib2-2)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "zebulib2-config, zebu2")
configure_file(packaging/shlibs.in packaging/shlibs @ONLY)
list(TRANSFORM ZEBU_EXPORT_NAMES REPLACE "(.+)" " \\1@ZEBULib2 2.3")
list(JOIN ZEBU_EXPORT_NAMES "\n" ZEBU_SYMBOLS)
configure_file(packaging/symbols.in packaging/symbols @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/packaging/shlibs ${PROJECT_BINARY_DIR}/packaging/symbols ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "trace-log library
Writes lines of fixed columns into a ring of trace files, of one process or
of several, and into an area that all processes of the host share.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzebulib2-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libzebulib2-2 (= ${ZEBU_DEBIAN_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "trace-log library - headers and manual
The headers for C and C++, files for pkg-config and CMake, the manual of the
functions, and examples.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zebu2)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libzebulib2-2 (= ${ZEBU_DEBIAN_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "reader of trace rings and of the trace area
Shows, follows and filters trace files while they are written, drains the
trace area, and checks the state of both.")

set(CPACK_DEBIAN_FORWARD_PACKAGE_NAME zebu2-forward)
set(CPACK_DEBIAN_FORWARD_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_FORWARD_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FORWARD_PACKAGE_SUGGESTS "zebu2")
set(CPACK_DEBIAN_FORWARD_DESCRIPTION "trace lines to a RELP server
Delivers the lines of trace rings and of the trace area to a server such as
rsyslog, each until it was acknowledged, and goes on where it stopped.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-zebulib2)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "libzebulib2-2 (>= ${PROJECT_VERSION}), python3:any (>= 3.9)")
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "trace-log library - Python module
Puts lines into trace rings of one process or of several, by itself or as a
handler of the logging module, through the C library.")

set(CPACK_DEBIAN_CONFIG_PACKAGE_NAME zebulib2-config)
set(CPACK_DEBIAN_CONFIG_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_CONFIG_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_CONFIG_PACKAGE_CONTROL_EXTRA 
  ${PROJECT_SOURCE_DIR}/packaging/conffiles ${PROJECT_SOURCE_DIR}/packaging/postinst)
set(CPACK_DEBIAN_CONFIG_DESCRIPTION "trace-log library - standard configuration
The configuration file in its standard place, and the directory of the trace
area of the host.")

include(CPack)
