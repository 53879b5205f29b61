# qkmem_one_source(<variable> <name> <source>...): writes a source that includes all the others, and
# sets the variable to it. It takes a third of the time to compile. The names of each source stay in
# a namespace of its own. Sources whose property SKIP_UNITY_BUILD_INCLUSION is set stay apart, and
# the variable lists them too.
#
# What the sources include comes first, outside of the namespaces. So a missing #include shows only
# where each source is compiled by itself.
function(qkmem_one_source variable name)
  set(headers)
  set(bodies "")
  set(apart)
  foreach(source IN LISTS ARGN)
    get_source_file_property(stays_apart "${source}" SKIP_UNITY_BUILD_INCLUSION)
    if(stays_apart)
      list(APPEND apart "${source}")
      continue()
    endif()
    file(STRINGS "${source}" own_headers REGEX "^#include ")
    list(APPEND headers ${own_headers})
    get_filename_component(stem "${source}" NAME_WE)
    string(APPEND bodies "namespace ${stem} {\n#include \"${source}\"\n}\n")
  endforeach()
  list(REMOVE_DUPLICATES headers)
  list(JOIN headers "\n" headers)
  set(path "${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp")
  file(CONFIGURE OUTPUT "${path}" CONTENT "${headers}\n${bodies}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARGN})
  set(${variable} "${path}" ${apart} PARENT_SCOPE)
endfunction()
