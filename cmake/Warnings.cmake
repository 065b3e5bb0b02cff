# Shared compiler warnings for every target of the project.
function(tidewell_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow=local -Wnon-virtual-dtor
                                           -Wno-missing-field-initializers)
  if(TIDEWELL_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
