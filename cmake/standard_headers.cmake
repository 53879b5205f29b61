# qkmem_read_headers_beforehand(<target>): library sources compile in half the time with these
# precompiled. Only in builds with tests, one of which builds the sources as users do: it notices a
# source that doesn't include all that it uses.
function(qkmem_read_headers_beforehand target)
  target_precompile_headers(${target} PRIVATE <algorithm> <array> <atomic> <cstdint> <cstdio>
    <cstdlib> <cstring> <functional> <memory> <mutex> <optional> <string> <string_view> <vector>)
endfunction()
