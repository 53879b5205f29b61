# qkmem_read_headers_beforehand(<target>): library sources compile in half the time with these
# precompiled. Not where users' builds are tried: there each source has to include all that it uses.
function(qkmem_read_headers_beforehand target)
  target_precompile_headers(${target} PRIVATE <algorithm> <array> <atomic> <cstdint> <cstdio>
    <cstdlib> <cstring> <functional> <memory> <mutex> <optional> <string> <string_view> <vector>)
endfunction()
