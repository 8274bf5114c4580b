# TurboJPEG, the peer measured and compared with, where present: the target
# kel_turbojpeg carries its header, library and KEL_HAVE_TURBOJPEG=1.
find_path(TURBOJPEG_INCLUDE_DIR turbojpeg.h)
find_library(TURBOJPEG_LIBRARY turbojpeg)
if(TURBOJPEG_INCLUDE_DIR AND TURBOJPEG_LIBRARY)
  add_library(kel_turbojpeg INTERFACE)
  target_include_directories(kel_turbojpeg INTERFACE ${TURBOJPEG_INCLUDE_DIR})
  target_link_libraries(kel_turbojpeg INTERFACE ${TURBOJPEG_LIBRARY})
  target_compile_definitions(kel_turbojpeg INTERFACE KEL_HAVE_TURBOJPEG=1)
endif()
