# The libraries that have an adapter in include/qkmem/adapters/, for examples and tests. There is a
# target adapted_<library> for each that is installed, and a list of their names.
set(qkmem_adapted_libraries)

function(qkmem_adapted_library name found)
  if(NOT found)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 2 with "" "" "INCLUDE;LINK")
  add_library(adapted_${name} INTERFACE)
  target_include_directories(adapted_${name} SYSTEM INTERFACE ${with_INCLUDE})
  target_link_libraries(adapted_${name} INTERFACE ${with_LINK})
  set(qkmem_adapted_libraries ${qkmem_adapted_libraries} ${name} PARENT_SCOPE)
endfunction()

find_package(SQLite3 QUIET)
find_package(OpenSSL QUIET)
find_package(LibXml2 QUIET)
find_package(Lua QUIET)
qkmem_adapted_library(sqlite "${SQLite3_FOUND}" LINK SQLite::SQLite3)
qkmem_adapted_library(openssl "${OPENSSL_FOUND}" LINK OpenSSL::Crypto)
qkmem_adapted_library(libxml2 "${LIBXML2_FOUND}" LINK LibXml2::LibXml2)
qkmem_adapted_library(lua "${LUA_FOUND}" INCLUDE ${LUA_INCLUDE_DIR} LINK ${LUA_LIBRARIES})
