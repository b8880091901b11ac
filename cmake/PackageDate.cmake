# Read by cpack before it packs: the date of everything in the packages is the one that the caller gives,
# else the day of the newest entry in the change log.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  file(STRINGS ${CPACK_ZEBU_SOURCE}/CHANGELOG.md dates REGEX "^## .*[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]")
  list(GET dates 0 date)
  string(REGEX MATCH "[0-9]+-[0-9]+-[0-9]+" date "${date}")
  execute_process(COMMAND date -u -d ${date} +%s OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(ENV{SOURCE_DATE_EPOCH} ${epoch})
endif()
