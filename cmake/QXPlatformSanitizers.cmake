# Applies QXPLATFORM_SANITIZE ("address;undefined" or "thread") to a target.
function(qxplatform_sanitize target)
  if(QXPLATFORM_SANITIZE STREQUAL "")
    return()
  endif()
  string(REPLACE ";" "," kinds "${QXPLATFORM_SANITIZE}")
  target_compile_options(${target} PRIVATE -fsanitize=${kinds} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(${target} PRIVATE -fsanitize=${kinds})
endfunction()
