# Runs the `vexor` program on damaged files and hostile options. Every run must end within its
# time limit with an expected exit code (1 for input that cannot be used, 2 for arguments that
# are wrong), keep what it prints and the picture it writes under a size limit, and say what
# went wrong in the program's own words: no raw "#[fail]" lines of the library.
#   cmake -DPROGRAM=<vexor> -DHOSTILE=<tests/abi/hostile> -DCORPUS=<fuzz/corpus/scene_load>
#         -DWORK=<scratch dir> -P run_hostile_cli.cmake
cmake_minimum_required(VERSION 3.25)
file(MAKE_DIRECTORY ${WORK})
set(svg ${WORK}/hostile.svg)
set(most_output 2000000)
set(most_picture 4000000)
set(failures 0)

# Each case: the exit codes allowed (digits run together), then the arguments, separated by |.
# Damaged curve files cannot be used (1); key texts that are not keys are wrong arguments (2).
file(GLOB damaged_curves ${HOSTILE}/*.vxc)
file(GLOB bad_key_texts ${HOSTILE}/*.txt)
if(NOT damaged_curves OR NOT bad_key_texts)
  message(FATAL_ERROR "the damaged files are missing from ${HOSTILE}")
endif()
list(TRANSFORM damaged_curves PREPEND "1|env|plot|--file|")
list(TRANSFORM bad_key_texts PREPEND "2|env|plot|--file|")
set(cases ${damaged_curves} ${bad_key_texts}
  "1|env|plot|--file|/dev/zero"
  "1|env|plot|--file|${HOSTILE}"
  "1|env|plot|--file|${HOSTILE}/no-such-file"
  "2|env|plot|--key|0:0|--key|1:1|--every|1e20"
  "2|env|plot|--key|0:0|--key|1:1|--fps|1e300"
  "2|env|plot|--key|0:0|--key|1:1|--to|1e9"
  "2|env|plot|--key|0:0|--key|1:1|--from|-3e7|--to|3e7|--every|1"
  "0|env|plot|--key|0:0|--key|1:1|--from|-3e7|--to|3e7"
  "2|env|plot|--key|0:0|--key|1:1|--from|1|--to|1"
  "2|env|plot|--key|0:0|--key|1:1|--from|2|--to|1"
  "2|env|plot|--key|0:0|--key|1e-16:1"
  "2|env|plot|--key|-1e10:0"
  "2|env|plot|--key|0:0|--post|99"
  "2|env|plot|--key|0:0|--slope|8"
  "2|env|save|${WORK}/x.vxc|--key|0:0|--key|0:1"
  "0|env|plot|--key|0:0|--key|1:1|--name|</text><script>alert(1)</script>"
  "1|scene|show|/dev/zero"
  "1|scene|show|${HOSTILE}"
  "2|scene|plot|${HOSTILE}/no-such-file|--every|1e20"
  "2|scene|plot|${HOSTILE}/no-such-file|--fps|1e300"
  "2|scene|plot|${HOSTILE}/no-such-file|--to|1e9"
  "2|scene|plot|${HOSTILE}/no-such-file|--from|1|--to|0"
  "1|demo|--svg|${WORK}/no-such-dir/demo.svg"
  "1|gallery|--svg|${WORK}/no-such-dir/gallery.svg"
  "0|demo|--svg|${svg}"
  "0|gallery|--svg|${svg}")
# Every seed of the scene loader's fuzz corpus, damaged or not, through both scene commands.
file(GLOB seeds ${CORPUS}/*)
foreach(seed IN LISTS seeds)
  list(APPEND cases "01|scene|show|${seed}" "012|scene|plot|${seed}|--to|1")
endforeach()

foreach(case IN LISTS cases)
  string(REPLACE "|" ";" args "${case}")
  list(POP_FRONT args allowed)
  file(REMOVE ${svg})
  set(picture_args)
  list(GET args 0 command)
  if(command STREQUAL "env" OR command STREQUAL "scene")
    list(GET args 1 sub)
    if(sub STREQUAL "plot")
      set(picture_args --svg ${svg})
    endif()
  endif()
  execute_process(COMMAND ${PROGRAM} ${args} ${picture_args}
    WORKING_DIRECTORY ${WORK} TIMEOUT 30
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE code)
  string(REPLACE ";" " " shown "${args}")
  set(problem "")
  if(NOT code MATCHES "^[0-9]+$")
    set(problem "did not finish: ${code}")
  elseif(NOT allowed MATCHES "${code}")
    set(problem "exit code ${code}, expected one of ${allowed}")
  endif()
  string(LENGTH "${out}${err}" printed)
  if(printed GREATER most_output)
    string(APPEND problem " printed ${printed} bytes")
  endif()
  if(err MATCHES "#\\[fail\\]")
    string(APPEND problem " a raw library failure line on stderr")
  endif()
  if(EXISTS ${svg})
    file(SIZE ${svg} picture)
    if(picture GREATER most_picture)
      string(APPEND problem " wrote a picture of ${picture} bytes")
    endif()
    file(READ ${svg} text)
    if(text MATCHES "<script")
      string(APPEND problem " the picture holds unescaped text")
    endif()
  endif()
  if(NOT problem STREQUAL "")
    math(EXPR failures "${failures} + 1")
    string(SUBSTRING "${err}" 0 400 err_start)
    message(SEND_ERROR "`vexor ${shown}`: ${problem}\n--- stderr:\n${err_start}")
  endif()
endforeach()
list(LENGTH cases count)
message(STATUS "${count} hostile runs, ${failures} failed")
