# What is installed where, in six components: runtime (the shared object), development (headers, linking,
# manual of the functions), tools (the operator's program and its manual), forward (zebu2-forward) and, only
# when asked for by name, python (the module) and config (the standard configuration and the directory of the
# trace area, under /opt).
#
# There is no static archive: two copies of the library in one process would split its state.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZEBU_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZEBULib2)
set(ZEBU_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ---- Library and headers -------------------------------------------------------------------------

install(TARGETS ZEBULib2 EXPORT ZEBULib2Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/ZEBULib2.h include/ZEBULib2_log.h include/ZEBULib2.hpp include/ZEBULib2_error.hpp include/ZEBULib2_puts.hpp
  adapters/ZEBULib2_spdlog.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
# Only by name: where modules belong, the distribution decides.
install(FILES adapters/zebulib2.py DESTINATION lib/python3/dist-packages COMPONENT python EXCLUDE_FROM_ALL)

# ---- Finding it: find_package and pkg-config, both from wherever the tree lies --------------------

install(EXPORT ZEBULib2Targets NAMESPACE ZEBULib2:: DESTINATION ${ZEBU_CMAKE_DIR} COMPONENT development)
configure_package_config_file(cmake/ZEBULib2Config.cmake.in ZEBULib2Config.cmake
  INSTALL_DESTINATION ${ZEBU_CMAKE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(ZEBULib2ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZEBULib2Config.cmake ${PROJECT_BINARY_DIR}/ZEBULib2ConfigVersion.cmake
  DESTINATION ${ZEBU_CMAKE_DIR} COMPONENT development)

# Relative to the file itself, unless the place of the libraries was given as an absolute path.
set(ZEBU_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  file(RELATIVE_PATH ZEBU_PC_PREFIX /prefix/${ZEBU_PC_DIR} /prefix)
  string(REGEX REPLACE "/$" "" ZEBU_PC_PREFIX "\${pcfiledir}/${ZEBU_PC_PREFIX}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_${dir} BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE ZEBU_PC_${dir})
endforeach()
configure_file(cmake/ZEBULib2.pc.in ZEBULib2.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ZEBULib2.pc DESTINATION ${ZEBU_PC_DIR} COMPONENT development)

# ---- Manual: a page per family, and a link page per function made from the page's list of names ---

file(GLOB ZEBU_MAN_PAGES CONFIGURE_DEPENDS docs/man/*.[1-8])
foreach(page IN LISTS ZEBU_MAN_PAGES)
  string(REGEX MATCH "[1-8]$" section ${page})
  if(page MATCHES "/zebu2-")
    if(NOT TARGET zebu2-forward)
      continue()
    endif()
    set(component forward)
  elseif(page MATCHES "/ZEBULib2.cnf.5$")
    set(component config)
  elseif(section MATCHES "[15]")
    set(component tools)
  else()
    set(component development)
  endif()
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  if(section EQUAL 3)
    get_filename_component(name ${page} NAME)
    file(STRINGS ${page} functions REGEX "^\\.Nm ZEBU2_")
    foreach(function IN LISTS functions)
      string(REGEX MATCH "ZEBU2_[A-Za-z0-9_]+" function "${function}")
      if(name STREQUAL "${function}.3")
        continue()
      endif()
      file(CONFIGURE OUTPUT man3/${function}.3 CONTENT ".so man3/${name}\n")
      install(FILES ${PROJECT_BINARY_DIR}/man3/${function}.3
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
    endforeach()
  endif()
endforeach()

# ---- The operator's tool, when it is built --------------------------------------------------------

if(TARGET zebu2)
  # A tree in a place of its own finds its library; in /usr the loader does.
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_BINDIR})
      set(ZEBU_RPATH ${CMAKE_INSTALL_FULL_LIBDIR})
    else()
      file(RELATIVE_PATH ZEBU_RPATH /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
      set(ZEBU_RPATH "$ORIGIN/${ZEBU_RPATH}")
    endif()
    set_target_properties(zebu2 PROPERTIES INSTALL_RPATH "${ZEBU_RPATH}")
  endif()
  install(TARGETS zebu2 RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES tools/zebu2.bash-completion RENAME zebu2
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  install(FILES tools/zebu2.zsh-completion RENAME _zebu2
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)
  install(FILES tools/zebu2.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
  install(FILES tools/zebu2_log.lnav.json DESTINATION ${CMAKE_INSTALL_DATADIR}/zebu2 COMPONENT tools)
endif()

# ---- Services: the unit of the drain with the tool, the forwarder with its own --------------------------

if(TARGET zebu2)
  file(READ packaging/systemd/hardening.in ZEBU_UNIT_HARDENING)
  configure_file(packaging/systemd/zebu2-drain.service.in systemd/zebu2-drain.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/systemd/zebu2-drain.service DESTINATION lib/systemd/system COMPONENT tools)
  install(FILES packaging/systemd/zebu2.tmpfiles.conf RENAME zebu2.conf DESTINATION lib/tmpfiles.d COMPONENT tools)
endif()
if(TARGET zebu2-forward)
  configure_file(packaging/systemd/zebu2-forward@.service.in systemd/zebu2-forward@.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/systemd/zebu2-forward@.service
    DESTINATION lib/systemd/system COMPONENT forward)
  install(TARGETS zebu2-forward RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT forward)
  install(DIRECTORY examples/collect/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/zebu2-forward/examples
    COMPONENT forward)
endif()

# ---- The standard configuration, where the library looks for it -----------------------------------

set(ZEBU_OPT_DIR /opt/kelvora/ZEBULib2)
# What an operator has edited stays. The directory of the area is as open as the library makes it, but with the
# sticky bit, also where it was there before: who may write there may not remove what others made.
install(CODE "
  set(dir \"\$ENV{DESTDIR}${ZEBU_OPT_DIR}\")
  if(EXISTS \"\${dir}/etc/D002zebu2.cnf\")
    message(STATUS \"Kept: \${dir}/etc/D002zebu2.cnf\")
  else()
    file(INSTALL \"${PROJECT_SOURCE_DIR}/packaging/D002zebu2.cnf\" DESTINATION \"${ZEBU_OPT_DIR}/etc\")
  endif()
  file(MAKE_DIRECTORY \"\${dir}/mmap\")
  execute_process(COMMAND chmod 1777 \"\${dir}/mmap\" COMMAND_ERROR_IS_FATAL ANY)"
  COMPONENT config EXCLUDE_FROM_ALL)
install(FILES packaging/zebulib2-config.conf DESTINATION lib/tmpfiles.d COMPONENT config EXCLUDE_FROM_ALL)
