# Warning flags for the project's own targets; never leaked to consumers.
function(qxplatform_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor)
  if(QXPLATFORM_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
