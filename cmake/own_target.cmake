# qkmem_own_target(<target>): sets the compiler flags of this project.
# qkmem_own_program(<target>): the same for a program, and links the sanitizers' default options.

set(qkmem_sanitize_flags "")
if(QKMEM_SANITIZE)
  set(qkmem_sanitize_flags -fsanitize=${QKMEM_SANITIZE} -fno-omit-frame-pointer)
  if(QKMEM_SANITIZE MATCHES "undefined")
    list(APPEND qkmem_sanitize_flags -fno-sanitize-recover=undefined)
  endif()
endif()

function(qkmem_own_target target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion ${qkmem_sanitize_flags})
  # What g++ doesn't warn of by these flags either.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE
      -Wno-sign-conversion -Wno-nested-anon-types -Wno-unknown-attributes)
  endif()
  if(QKMEM_ASSERTIONS)
    target_compile_definitions(${target} PRIVATE QKMEM_ASSERTIONS _GLIBCXX_ASSERTIONS)
  endif()
  if(QKMEM_PORTABLE)
    target_compile_definitions(${target} PRIVATE QKMEM_PORTABLE)
  endif()
  if(QKMEM_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  target_link_options(${target} PUBLIC ${qkmem_sanitize_flags})
endfunction()

if(QKMEM_SANITIZE)
  add_library(qkmem_sanitizer_defaults OBJECT
    "${CMAKE_CURRENT_LIST_DIR}/sanitizer_defaults.cpp")
  qkmem_own_target(qkmem_sanitizer_defaults)
endif()

function(qkmem_own_program target)
  qkmem_own_target(${target})
  if(QKMEM_SANITIZE)
    target_link_libraries(${target} PRIVATE qkmem_sanitizer_defaults)
  endif()
endfunction()
