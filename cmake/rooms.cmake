# vqns_room(NAME SOURCES ... [USES rooms...] [HEADERS public headers...] [OPTIONS flags...])
#
# One room of the library: an object library `vqns_NAME` that sees the headers of
# its own folder and of the rooms named under USES, and no others, so that an
# include against the floor order does not compile. Public headers are collected
# for installation.
#
# No exceptions, no RTTI and no C++ run-time library: the library links libc and
# libm alone. Multiply and add stay separate unless a kernel folder asks otherwise.
function(vqns_room name)
  cmake_parse_arguments(room "" "" "SOURCES;USES;HEADERS;OPTIONS" ${ARGN})
  add_library(vqns_${name} OBJECT ${room_SOURCES})
  target_include_directories(vqns_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/api)
  target_compile_options(vqns_${name} PRIVATE
    -fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility=hidden
    -ffp-contract=off -fno-math-errno ${room_OPTIONS})
  target_link_libraries(vqns_${name} PRIVATE vqns_warnings)
  foreach(used IN LISTS room_USES)
    # Include folders only: objects are gathered once, by the library targets.
    target_include_directories(vqns_${name} PUBLIC
      $<TARGET_PROPERTY:vqns_${used},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
  list(TRANSFORM room_HEADERS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE headers)
  set_property(GLOBAL APPEND PROPERTY VQNS_PUBLIC_HEADERS ${headers})
  set_property(GLOBAL APPEND PROPERTY VQNS_ROOMS vqns_${name})
endfunction()
