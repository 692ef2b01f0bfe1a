# precompiled(<library>): the headers of the standard library that most sources read, compiled once. For
# builds beside the plain one, which shows that each source includes what it needs.
function(precompiled library)
  target_precompile_headers(
    ${library} PRIVATE <algorithm> <array> <cstdint> <cstdio> <functional> <map> <memory> <optional>
                       <string> <utility> <vector>)
endfunction()
