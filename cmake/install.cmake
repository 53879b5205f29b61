# What `cmake --install` puts in place: the headers, both libraries, and what CMake and pkg-config
# find them by.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/qkmem")
set(package_build_folder "${PROJECT_BINARY_DIR}/cmake")

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/qkmem"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")

# An export of its own for each library, so that a package can leave out one of them.
install(TARGETS qkmem EXPORT qkmem-static
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(TARGETS qkmem_shared EXPORT qkmem-shared
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime
    NAMELINK_COMPONENT development
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
foreach(export qkmem-static qkmem-shared)
  install(EXPORT ${export} NAMESPACE qkmem:: FILE ${export}-targets.cmake
    DESTINATION "${package_folder}" COMPONENT development)
endforeach()

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/qkmem-config.cmake.in"
  "${package_build_folder}/qkmem-config.cmake"
  INSTALL_DESTINATION "${package_folder}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${package_build_folder}/qkmem-config-version.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${package_build_folder}/qkmem-config.cmake"
  "${package_build_folder}/qkmem-config-version.cmake"
  DESTINATION "${package_folder}" COMPONENT development)

if(QKMEM_COMMAND)
  install(TARGETS qkmem_command RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT command)
endif()

# What gdb loads. It looks for the first file by the path of the library. The prefix is known when
# that is installed.
set(gdb_folder "${PROJECT_SOURCE_DIR}/tools/gdb")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(gdb_libraries "${CMAKE_INSTALL_LIBDIR}")
else()
  set(gdb_libraries "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}")
endif()
install(FILES "${gdb_folder}/qkmem-gdb.py"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/gdb/auto-load${gdb_libraries}"
  RENAME "libqkmem.so.${PROJECT_VERSION}-gdb.py" COMPONENT runtime)
install(FILES "${gdb_folder}/qkmem-gdb.py"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/qkmem/gdb" COMPONENT runtime)
install(DIRECTORY "${gdb_folder}/qkmem_gdb"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/qkmem/gdb" COMPONENT runtime
  FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)

# The manual pages, where they can be made.
find_package(Python3 QUIET COMPONENTS Interpreter)
if(Python3_Interpreter_FOUND)
  set(man_folder "${PROJECT_BINARY_DIR}/man")
  file(GLOB_RECURSE man_inputs CONFIGURE_DEPENDS
    "${PROJECT_SOURCE_DIR}/docs/*.md"
    "${PROJECT_SOURCE_DIR}/include/qkmem/*.h"
    "${PROJECT_SOURCE_DIR}/scripts/man/*.py")
  add_custom_command(OUTPUT "${man_folder}/made"
    COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/scripts/make_man" "${man_folder}"
    COMMAND "${CMAKE_COMMAND}" -E touch "${man_folder}/made"
    DEPENDS "${PROJECT_SOURCE_DIR}/scripts/make_man" ${man_inputs}
    COMMENT "Writing the manual pages"
    VERBATIM)
  add_custom_target(qkmem_man ALL DEPENDS "${man_folder}/made")
  install(DIRECTORY "${man_folder}/man3" "${man_folder}/man7"
    DESTINATION "${CMAKE_INSTALL_MANDIR}" COMPONENT development)
  if(QKMEM_COMMAND)
    install(DIRECTORY "${man_folder}/man1"
      DESTINATION "${CMAKE_INSTALL_MANDIR}" COMPONENT command)
  endif()
endif()

# From its own folder the file finds the prefix, which can be moved. Not below /usr, whose folders
# pkg-config leaves out if it knows them by their names, and if the libraries' folder is elsewhere.
set(pc_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(IS_ABSOLUTE CMAKE_INSTALL_LIBDIR libraries_are_outside)
cmake_path(IS_ABSOLUTE CMAKE_INSTALL_INCLUDEDIR headers_are_outside)
if(libraries_are_outside OR CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${pc_folder}" OUTPUT_VARIABLE to_prefix)
  set(pc_prefix "\${pcfiledir}/${to_prefix}")
endif()
if(libraries_are_outside)
  set(pc_libdir "${CMAKE_INSTALL_LIBDIR}")
else()
  set(pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(headers_are_outside)
  set(pc_includedir "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file("${CMAKE_CURRENT_LIST_DIR}/qkmem.pc.in" "${PROJECT_BINARY_DIR}/qkmem.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/qkmem.pc" DESTINATION "${pc_folder}" COMPONENT development)
