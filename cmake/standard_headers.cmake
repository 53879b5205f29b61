# qkmem_precompile_standard_headers(<target>): halves the time to compile the library. Used only in
# builds with tests: one of them compiles the sources as users do, which detects missing includes.
# Further headers, which few sources include, would make it longer for the others.
function(qkmem_precompile_standard_headers target)
  target_precompile_headers(${target} PRIVATE <algorithm> <array> <atomic> <cstdint> <cstdio>
    <cstdlib> <cstring> <map> <optional> <string_view>)
endfunction()
