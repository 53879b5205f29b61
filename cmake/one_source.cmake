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

get_filename_component(qkmem_library_folder "${CMAKE_CURRENT_LIST_DIR}/../src" ABSOLUTE)

# Names of theirs are used otherwise by another source of the same folder.
set(qkmem_sources_apart
  config/debug_config.cpp
  config/module_options.cpp
  life/startup.cpp
  profile/report/rows.cpp
  report/info.cpp
  support/ending_signals.cpp
  support/fifo.cpp
  support/line.cpp)

# qkmem_one_source_per_folder(<target>): compiles the library's sources in a target as one for each
# folder, but for those that stay apart. It takes a third of the time.
function(qkmem_one_source_per_folder target)
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(RELATIVE_PATH source BASE_DIRECTORY "${qkmem_library_folder}" OUTPUT_VARIABLE name)
    cmake_path(GET name PARENT_PATH folder)
    if(folder AND NOT folder MATCHES "^[.][.]" AND NOT name IN_LIST qkmem_sources_apart)
      string(MAKE_C_IDENTIFIER "${folder}" group)
      set_source_files_properties("${source}" PROPERTIES UNITY_GROUP ${group})
    endif()
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP
    UNITY_BUILD_CODE_BEFORE_INCLUDE "// NOLINTNEXTLINE(bugprone-suspicious-include)")
endfunction()
