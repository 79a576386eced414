# Project code is held to -Wall -Wextra -Wpedantic, and to warnings-as-errors
# when TARSEL_WERROR is on; dependencies come in as system headers, so their
# warnings never reach us.
function(tarsel_strict_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic $<$<BOOL:${TARSEL_WERROR}>:-Werror>)
endfunction()
