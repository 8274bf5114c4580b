# Compares the defined dynamic symbols of LIBRARY (demangled, so C++
# signatures are part of the check) with the committed LIST, one symbol a
# line, sorted; lines starting with '#' are comments. With -DUPDATE=ON,
# rewrites LIST instead.
#   cmake -DNM=nm -DLIBRARY=lib.so -DLIST=exports.txt [-DEXTRA=a,b] [-DUPDATE=ON] -P check-exports.cmake
foreach(var NM LIBRARY LIST)
  if(NOT ${var})
    message(FATAL_ERROR "check-exports: ${var} not set")
  endif()
endforeach()

execute_process(COMMAND ${NM} -D --defined-only --demangle ${LIBRARY}
  OUTPUT_VARIABLE raw RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "check-exports: ${NM} failed on ${LIBRARY}")
endif()
# Lines are "address type name"; the name may contain spaces.
string(REPLACE ";" "\\;" raw "${raw}")
string(REPLACE "\n" ";" lines "${raw}")
set(actual "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-fA-F]+ [A-Za-z] (.+)$")
    list(APPEND actual "${CMAKE_MATCH_1}")
  endif()
endforeach()
list(SORT actual)
list(REMOVE_DUPLICATES actual)

if(UPDATE)
  string(REPLACE ";" "\n" text "${actual}")
  file(WRITE ${LIST} "# Symbols the library exports (nm -D --defined-only --demangle), sorted.\n"
    "# Regenerate after an intended change: cmake --build <build> --target update_exports\n"
    "${text}\n")
  list(LENGTH actual count)
  message(STATUS "check-exports: wrote ${count} symbols to ${LIST}")
  return()
endif()

file(STRINGS ${LIST} expected)
list(FILTER expected EXCLUDE REGEX "^#|^$")
# EXTRA: symbols of this library beyond the list (a plug-in's descriptor).
if(EXTRA)
  string(REPLACE "," ";" extra_symbols "${EXTRA}")
  list(APPEND expected ${extra_symbols})
endif()
set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
set(extra ${actual})
list(REMOVE_ITEM extra ${expected})
if(missing OR extra)
  foreach(s ${missing})
    message("- ${s}   (listed, not exported)")
  endforeach()
  foreach(s ${extra})
    message("+ ${s}   (exported, not listed)")
  endforeach()
  message(FATAL_ERROR "check-exports: the exported symbols of ${LIBRARY} differ from ${LIST}. "
    "If the change is intended: cmake --build <build dir> --target update_exports, "
    "review the diff of ${LIST} and commit it.")
endif()
list(LENGTH actual count)
message(STATUS "check-exports: ${count} symbols as listed")
