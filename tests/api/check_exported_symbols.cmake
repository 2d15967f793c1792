# The library exports exactly what its public header declares with
# QL_IS_API: a declaration without its symbol fails hosts at link time, a
# symbol without a declaration leaks an internal. The ql_is_host_ hooks
# exist in host builds only.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
  OUTPUT_VARIABLE nm_out RESULT_VARIABLE nm_result)
if(NOT nm_result EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" nm_lines "${nm_out}")
set(actual)
foreach(line IN LISTS nm_lines)
  if(line MATCHES "^[0-9a-fA-F]* *([A-Za-z]) (.+)$")
    set(name ${CMAKE_MATCH_2})
    string(REGEX REPLACE "@.*$" "" name "${name}")
    # Absolute linker-defined markers are not the library's own symbols,
    # nor are the indicators AddressSanitizer adds for exported globals.
    if(CMAKE_MATCH_1 STREQUAL "A" OR name MATCHES "^__odr_asan")
      continue()
    endif()
    list(APPEND actual ${name})
  endif()
endforeach()

# The declared name is the first identifier followed by "(", "[" or ";".
file(STRINGS ${HEADER} declarations REGEX "^QL_IS_API ")
set(expected)
foreach(line IN LISTS declarations)
  string(REGEX MATCH "[A-Za-z_][A-Za-z0-9_]* *[[(;]" name "${line}")
  string(REGEX REPLACE " *[[(;]$" "" name "${name}")
  if(HOST_HOOKS OR NOT name MATCHES "^ql_is_host_")
    list(APPEND expected ${name})
  endif()
endforeach()

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
list(LENGTH actual count)
message(STATUS "${count} exported symbols as declared")
