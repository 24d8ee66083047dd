# Generates the static assertions and compiles them for 32-bit Windows.
# Fails (and so fails the test) on any assertion that does not hold.
string(REPLACE "|" ";" include_dirs "${INCLUDES}")
set(source ${WORK}/abi_check.cpp)
set(args --lang c++ --include ${HEADER} --constants ${FACTS}/constants.txt --present-in ${HEADER} --define _WINDOWS)
if(ALIASES AND EXISTS ${ALIASES})
  list(APPEND args --alias ${ALIASES})
endif()
execute_process(
  COMMAND ${PYTHON} ${FACTS}/gen_static_asserts.py ${args}
  OUTPUT_FILE ${source}
  RESULT_VARIABLE gen_result
  ERROR_VARIABLE gen_error)
if(NOT gen_result EQUAL 0)
  message(FATAL_ERROR "generating the ABI assertions failed: ${gen_error}")
endif()
file(STRINGS ${source} assertions REGEX "_SA\\(")
list(LENGTH assertions count)
if(count LESS 100)
  message(FATAL_ERROR "only ${count} ABI assertions were generated; the header or the facts are not what they should be")
endif()

set(flags -std=c++17 -c -o ${WORK}/abi_check.obj)
foreach(dir ${include_dirs})
  list(APPEND flags -I${dir})
endforeach()
execute_process(
  COMMAND ${CXX} ${flags} ${source}
  RESULT_VARIABLE cc_result
  OUTPUT_VARIABLE cc_out
  ERROR_VARIABLE cc_out)
if(NOT cc_result EQUAL 0)
  message(FATAL_ERROR "host_api.h disagrees with the host's 32-bit layout:\n${cc_out}")
endif()
message(STATUS "${count} ABI assertions hold")
