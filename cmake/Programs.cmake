# Examples, programs, tests and benchmark: each joins in when what it needs is there. The summary at the end
# of configuring says what is built, and which Debian packages would bring the rest.

# zebu_part(<what> <condition> <packages>): a line of the summary.
function(zebu_part what condition packages)
  if(${condition})
    set(line "built")
  else()
    set(line "left out, needs ${packages}")
  endif()
  set_property(GLOBAL APPEND PROPERTY ZEBU_SUMMARY "  ${what}: ${line}")
endfunction()

function(zebu_summary)
  get_property(lines GLOBAL PROPERTY ZEBU_SUMMARY)
  list(JOIN lines "\n" lines)
  message(STATUS "${PROJECT_NAME} ${PROJECT_VERSION}, ${CMAKE_BUILD_TYPE}\n  library: built\n${lines}")
endfunction()

# The command lines of the programs: most of what the compiler does there is the library that parses them, and
# that runs once. Half of its time would be checks of that library's undefined behaviour, or names of its symbols
# for a debugger.
set(ZEBU_PARSED_ONCE $<$<NOT:$<CONFIG:Debug>>:-O$<NOT:$<BOOL:${ZEBU_SANITIZED}>>>
  $<$<BOOL:${ZEBU_SANITIZED}>:-fno-sanitize=undefined>)
if(CMAKE_CXX_FLAGS MATCHES "-g( |$)")
  list(APPEND ZEBU_PARSED_ONCE -g1)
endif()

# The objects of the library for the tests of internals; never installed.
add_library(zebu_internal STATIC)
target_link_libraries(zebu_internal PUBLIC zebu_objects)
set_target_properties(zebu_internal PROPERTIES EXCLUDE_FROM_ALL ON LINKER_LANGUAGE CXX)

if(ZEBU_EXAMPLES)
  add_subdirectory(examples)
endif()

set(packages "libcli11-dev nlohmann-json3-dev")
if(ZEBU_TOOL)
  find_package(CLI11 QUIET)
  find_package(nlohmann_json QUIET)
  if(CLI11_FOUND AND nlohmann_json_FOUND)
    add_subdirectory(tools)
  elseif(NOT ZEBU_TOOL STREQUAL AUTO)
    message(FATAL_ERROR "ZEBU_TOOL is ON: install ${packages}")
  endif()
else()
  set(packages "ZEBU_TOOL=ON")
endif()
zebu_part(zebu2 "TARGET;zebu2" "${packages}")
if(TARGET zebu2)
  zebu_part(zebu2-forward "TARGET;zebu2-forward" libssl-dev)
endif()

include(CTest)
if(ZEBU_FUZZ)
  add_subdirectory(tests/fuzz)
elseif(BUILD_TESTING)
  find_package(GTest QUIET)
  if(GTest_FOUND)
    add_subdirectory(tests)
  endif()
  zebu_part(tests GTest_FOUND libgtest-dev)
endif()

add_subdirectory(adapters)

find_package(benchmark QUIET)
if(benchmark_FOUND AND NOT ZEBU_SANITIZE)
  add_subdirectory(bench)
endif()
if(NOT ZEBU_SANITIZE)
  zebu_part(benchmark benchmark_FOUND libbenchmark-dev)
endif()
