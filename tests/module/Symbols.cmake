# symbols(<variable> <nm option> ...): the names that nm lists for OBJECT.
function(symbols variable)
  execute_process(COMMAND ${NM} --format=just-symbols ${ARGN} ${OBJECT}
                  OUTPUT_VARIABLE lines COMMAND_ERROR_IS_FATAL ANY)
  string(STRIP "${lines}" lines)
  string(REPLACE "\n" ";" names "${lines}")
  if(NOT names)
    message(FATAL_ERROR "${OBJECT} has no symbols")
  endif()
  set(${variable} ${names} PARENT_SCOPE)
endfunction()

# fail_on(<text> <name> ...): ends the check when there are names.
function(fail_on text)
  if(ARGN)
    list(JOIN ARGN "\n  " names)
    message(FATAL_ERROR "${text}:\n  ${names}")
  endif()
endfunction()
