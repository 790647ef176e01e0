# Fails unless the shared library exports at least one symbol and no C++ (mangled) symbol:
# everything a host can reach goes through the C interface.
#   cmake -DNM=<nm> -DLIBRARY=<libvexor.so> -P check_exports.cmake
cmake_minimum_required(VERSION 3.25)
execute_process(COMMAND "${NM}" -D --defined-only "${LIBRARY}"
  OUTPUT_VARIABLE listing ERROR_VARIABLE errors RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}: ${errors}")
endif()

string(REPLACE "\n" ";" lines "${listing}")
set(exported 0)
set(mangled)
foreach(line IN LISTS lines)
  # "<address> <type> <name>"; absolute symbols may have no address.
  if(line MATCHES "^[0-9A-Fa-f]* *[A-Za-z] ([^ ]+)$")
    set(name "${CMAKE_MATCH_1}")
    math(EXPR exported "${exported} + 1")
    if(name MATCHES "^_Z")
      list(APPEND mangled "${name}")
    endif()
  endif()
endforeach()

if(exported EQUAL 0)
  message(FATAL_ERROR "${LIBRARY} exports no symbol at all")
endif()
list(LENGTH mangled mangled_count)
if(mangled_count GREATER 0)
  string(REPLACE ";" "\n  " shown "${mangled}")
  message(FATAL_ERROR "${LIBRARY} exports ${mangled_count} C++ symbol(s); exported functions "
    "must be VX_API and extern \"C\", everything else hidden:\n  ${shown}")
endif()
message(STATUS "${exported} exported symbols, none of them C++")
