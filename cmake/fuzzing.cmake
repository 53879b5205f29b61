# Whether clang and its fuzzer are here: qkmem_fuzzing_clang is the compiler then, else empty.
set(qkmem_fuzzing_clang "")
find_program(QKMEM_CLANG NAMES clang++ clang++-14 clang++-15 clang++-16 clang++-19
  DOC "The compiler of the fuzz targets")
mark_as_advanced(QKMEM_CLANG)
if(QKMEM_CLANG)
  execute_process(COMMAND "${QKMEM_CLANG}" --print-runtime-dir
    OUTPUT_VARIABLE runtime_dir OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  file(GLOB fuzzer "${runtime_dir}/libclang_rt.fuzzer*.a")
  if(fuzzer)
    set(qkmem_fuzzing_clang "${QKMEM_CLANG}")
  endif()
endif()
