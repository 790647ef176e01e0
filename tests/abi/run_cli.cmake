# Runs the `vexor` program and checks its exit code and output.
#   cmake -DPROGRAM=<vexor> -DCODE=<exit code> [-DOUT=<regex>] [-DERR=<regex>]
#         [-DQUIET_OUT=ON] -P run_cli.cmake -- <arguments> [--- <other arguments>]
# With a second argument list after "---", that run must give the same exit code and output.
# OUT and ERR are searched in stdout and stderr; QUIET_OUT wants nothing on stdout.
cmake_minimum_required(VERSION 3.25)
set(first)
set(second)
set(list_name "")
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE ${last})
  set(arg "${CMAKE_ARGV${i}}")
  if(list_name STREQUAL "" AND arg STREQUAL "--")
    set(list_name first)
  elseif(list_name STREQUAL "first" AND arg STREQUAL "---")
    set(list_name second)
  elseif(NOT list_name STREQUAL "")
    list(APPEND ${list_name} "${arg}")
  endif()
endforeach()

function(run_program prefix)
  execute_process(COMMAND "${PROGRAM}" ${ARGN}
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE code)
  set(${prefix}_out "${out}" PARENT_SCOPE)
  set(${prefix}_err "${err}" PARENT_SCOPE)
  set(${prefix}_code "${code}" PARENT_SCOPE)
endfunction()

run_program(a ${first})
string(REPLACE ";" " " shown "${first}")
set(context "`vexor ${shown}`\n--- stdout:\n${a_out}--- stderr:\n${a_err}")
if(NOT a_code STREQUAL CODE)
  message(FATAL_ERROR "exit code ${a_code}, expected ${CODE}: ${context}")
endif()
if(DEFINED OUT AND NOT a_out MATCHES "${OUT}")
  message(FATAL_ERROR "stdout does not match '${OUT}': ${context}")
endif()
if(DEFINED ERR AND NOT a_err MATCHES "${ERR}")
  message(FATAL_ERROR "stderr does not match '${ERR}': ${context}")
endif()
if(QUIET_OUT AND NOT a_out STREQUAL "")
  message(FATAL_ERROR "expected nothing on stdout: ${context}")
endif()

if(second)
  run_program(b ${second})
  string(REPLACE ";" " " shown_b "${second}")
  if(NOT b_code STREQUAL a_code OR NOT b_out STREQUAL a_out)
    message(FATAL_ERROR "`vexor ${shown_b}` (exit ${b_code}) differs from ${context}"
      "\n--- its stdout:\n${b_out}")
  endif()
endif()
