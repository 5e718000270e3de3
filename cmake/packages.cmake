# How things are linked and where they go in Debian packages, which differs from a build of one's own: there the program
# and the plugins carry the library within them and run from anywhere; in packages they share the one in libvqns0,
# and libraries lie in the folder of their architecture.
define_property(TARGET PROPERTY VQNS_LINK_SHARED INITIALIZE_FROM_VARIABLE VQNS_LINK_SHARED
  BRIEF_DOCS "Link vqns_stream with the shared library")

# What programs and plugins for packages are compiled and linked with besides.
add_library(vqns_packaging INTERFACE)
if(VQNS_PACKAGES)
  set(VQNS_LINK_SHARED ON)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE})
  # Where source and build folder lie leaves no trace in what is built.
  set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
  target_compile_options(vqns_packaging INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -D_FORTIFY_SOURCE=2)
  target_link_options(vqns_packaging INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,--as-needed)
endif()
