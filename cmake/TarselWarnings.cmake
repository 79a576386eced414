# Project code is held to warnings-as-errors; dependencies come in as system
# headers, so their warnings never reach us.
function(tarsel_strict_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
endfunction()
