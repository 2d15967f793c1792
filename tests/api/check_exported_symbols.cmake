# The library exports exactly what its public header declares with
# QL_IS_API: a declaration without its symbol fails hosts at link time, a
# symbol without a declaration leaks an internal. The ql_is_host_ hooks
# exist in host builds only.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE nm_out
  COMMAND_ERROR_IS_FATAL ANY)
# Absolute linker-defined markers (type A) are not the library's own
# symbols, nor are the indicators AddressSanitizer adds for exported
# globals; symbol versions are dropped.
string(REGEX MATCHALL " [^A \n] [^\n@]+" actual "${nm_out}")
list(TRANSFORM actual REPLACE "^ . " "")
list(FILTER actual EXCLUDE REGEX "^__odr_asan")

# The declared name is the identifier right before the first "(", "[" or ";".
file(STRINGS ${HEADER} expected REGEX "^QL_IS_API ")
list(TRANSFORM expected REPLACE "^[^([;]*[^A-Za-z0-9_]([A-Za-z_][A-Za-z0-9_]*) *[[(;].*$" "\\1")
if(NOT HOST_HOOKS)
  list(FILTER expected EXCLUDE REGEX "^ql_is_host_")
endif()

list(SORT actual)
list(REMOVE_DUPLICATES actual)
list(SORT expected)
set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
set(extra ${actual})
list(REMOVE_ITEM extra ${expected})
if(missing OR extra OR NOT expected)
  message(FATAL_ERROR "exported symbols differ\n  missing: ${missing}\n  unexpected: ${extra}")
endif()
