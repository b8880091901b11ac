# Run by cpack on the staged tree of all components: what packages have and plain install trees do not.
# Manual pages and change logs are compressed, modes do not follow the umask, and every time is one time.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*/man/*.[1-8])
if(pages)
  execute_process(COMMAND gzip -9nf ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
execute_process(COMMAND date -R -u -d @$ENV{SOURCE_DATE_EPOCH} OUTPUT_VARIABLE date)
file(GLOB stages ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(stage IN LISTS stages)
  get_filename_component(component ${stage} NAME)
  string(TOUPPER ${component} component)
  set(doc ${stage}${CPACK_PACKAGING_INSTALL_PREFIX}/share/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  file(COPY ${CPACK_ZEBU_CHANGELOG} DESTINATION ${doc})
  file(RENAME ${doc}/CHANGELOG.md ${doc}/changelog)
  file(WRITE ${doc}/changelog.Debian
    "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=low\n\n"
    "  * See changelog.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${date}")
  execute_process(COMMAND gzip -9nf ${doc}/changelog ${doc}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB area ${stage}/opt/kelvora/ZEBULib2/mmap)
  execute_process(COMMAND chmod -R u=rwX,go=rX ${stage} COMMAND_ERROR_IS_FATAL ANY)
  if(area)  # who may write there may not remove what others made
    execute_process(COMMAND chmod 1777 ${area} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  execute_process(COMMAND find ${stage} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
