# Reads the version of the project from the public header, the one place that has it:
# qkmem_version, as in 1.0.0.
set(qkmem_version)
set(version_header "${CMAKE_CURRENT_LIST_DIR}/../include/qkmem/version.h")
foreach(part MAJOR MINOR PATCH)
  file(STRINGS "${version_header}" line REGEX "^#define QK_MEM_VERSION_${part} [0-9]+")
  string(REGEX REPLACE "^#define [A-Z_]+ ([0-9]+).*$" "\\1" number "${line}")
  list(APPEND qkmem_version "${number}")
endforeach()
list(JOIN qkmem_version "." qkmem_version)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${version_header}")
