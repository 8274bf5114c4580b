# The library's external interface, checked: keljpeg_exports is a shared
# library holding the whole codec, so its dynamic symbol table is what the
# plug-in will export. The test ExportedSymbolsMatchTheCommittedList compares
# it with tests/data/exports.txt; after an intended change of the interface,
#   cmake --build <build dir> --target update_exports
# rewrites that list.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/keljpeg_exports.cpp
  "// Empty: the symbols come from the whole codec archive.\n")
add_library(keljpeg_exports SHARED ${CMAKE_CURRENT_BINARY_DIR}/keljpeg_exports.cpp)
target_link_libraries(keljpeg_exports PRIVATE
  -Wl,--whole-archive keljpeg_codec -Wl,--no-whole-archive -Wl,--no-undefined)

set(KEL_EXPORTS_LIST ${CMAKE_CURRENT_SOURCE_DIR}/tests/data/exports.txt)
set(KEL_EXPORTS_ARGS -DNM=${CMAKE_NM} -DLIBRARY=$<TARGET_FILE:keljpeg_exports>
  -DLIST=${KEL_EXPORTS_LIST} -P ${CMAKE_CURRENT_SOURCE_DIR}/cmake/check-exports.cmake)
add_custom_target(update_exports
  COMMAND ${CMAKE_COMMAND} -DUPDATE=ON ${KEL_EXPORTS_ARGS}
  DEPENDS keljpeg_exports VERBATIM)
# Sanitizer builds add instrumentation symbols of their own.
if(BUILD_TESTING AND NOT KEL_SANITIZE)
  add_test(NAME ExportedSymbolsMatchTheCommittedList COMMAND ${CMAKE_COMMAND} ${KEL_EXPORTS_ARGS})
endif()
