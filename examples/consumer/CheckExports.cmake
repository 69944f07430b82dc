# Checks what the collector's shared library exports: the factory and the MI application are
# there, and no template code of the libraries it is built from (Boost, spdlog, fmt, pugixml,
# the standard library) leaks out. Called by the ctest collector_exports:
#   cmake -DLIBRARY=<libcollector_winevents.so> -P CheckExports.cmake
execute_process(COMMAND nm -DC --defined-only ${LIBRARY} RESULT_VARIABLE result OUTPUT_VARIABLE symbols)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY} (${result})")
endif()
foreach(wanted "collector::win_events::create_collector" "CMiApplication::CreateInstance" "CMiApplication::~CMiApplication")
  string(FIND "${symbols}" "${wanted}" position)
  if(position EQUAL -1)
    message(FATAL_ERROR "${LIBRARY} does not export ${wanted}")
  endif()
endforeach()
# Names only: a signature of our own may well take a std:: argument.
string(REGEX REPLACE "(^|\n)[0-9a-f]+ [A-Za-z] " "\\1" names "${symbols}")
string(REGEX REPLACE "\\([^\n]*" "" names "${names}")
string(REGEX MATCHALL "[^\n]*(^|\n|for |to )(boost|spdlog|fmt|pugi|std|evtx|cim)::[^\n]*" leaked "${names}")
list(LENGTH leaked count)
if(count GREATER 0)
  list(SUBLIST leaked 0 10 shown)
  string(REPLACE ";" "\n" shown "${shown}")
  message(FATAL_ERROR "${LIBRARY} exports ${count} symbols that are not its own, among them:\n${shown}")
endif()
message("${LIBRARY}: exports only its own names")
