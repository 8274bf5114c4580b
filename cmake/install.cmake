# cmake --install: the codec library with its public headers and keljpeg.pc,
# the keljpeg tool (tools/), and the plug-in into GStreamer's plug-in
# directory (the plug-in's own CMakeLists.txt).
install(TARGETS keljpeg_codec ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(header kau/kau.h kau/kexport.h kiu/kiu.h kiu/kiuscale.h kiu/mmstream.h)
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/common/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keljpeg/${dir})
endforeach()
foreach(header kj.d/CJPGD.h kj.d/jpdyuv.h kj.d/kj.dlimits.h kj.e/CJPGE.h)
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${KEL_JPEG_DIR}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keljpeg/${dir})
endforeach()
file(RELATIVE_PATH KEL_PC_PREFIX_FROM_PCDIR /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/keljpeg.pc.in ${CMAKE_BINARY_DIR}/keljpeg.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/keljpeg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Installs into a staging root and uses the result as a user would. The
# sanitizer build is left out (the example would need the sanitizer runtime),
# as is the cross build (the host compiler cannot use the target library).
if(BUILD_TESTING AND TARGET gstkeljpeg AND KELJPEG_GST_API STREQUAL "1.0" AND NOT KEL_SANITIZE
   AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME InstalledTreeServesPkgConfigAndGstInspect
    COMMAND bash ${PROJECT_SOURCE_DIR}/tests/install_test.sh ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR}/README.md)
  set_tests_properties(InstalledTreeServesPkgConfigAndGstInspect PROPERTIES LABELS "install" RUN_SERIAL TRUE)
endif()

# The README's ```sh examples, run from a directory whose build/ is this build.
# Not in the sanitizer build: gst-launch-1.0 cannot load an instrumented plug-in.
if(BUILD_TESTING AND TARGET keljpeg AND TARGET gstkeljpeg AND KELJPEG_GST_API STREQUAL "1.0"
   AND NOT KEL_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME ReadmeShellExamplesRunAsWritten
    COMMAND bash ${PROJECT_SOURCE_DIR}/tests/readme_test.sh ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR}/README.md)
  set_tests_properties(ReadmeShellExamplesRunAsWritten PROPERTIES LABELS "readme")
endif()

# cmake --build build --target architecture_diagram: renders docs/architecture.dot
# into the SVG and PNG beside it (checked in, so readers need no Graphviz).
find_program(KEL_DOT dot)
if(KEL_DOT)
  add_custom_target(architecture_diagram
    COMMAND ${KEL_DOT} -Tsvg architecture.dot -o architecture.svg
    COMMAND ${KEL_DOT} -Tpng -Gdpi=80 architecture.dot -o architecture.png
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/docs VERBATIM)
endif()
