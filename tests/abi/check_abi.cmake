# Turns the layout and constant tables into static assertions against the
# host-interface header and compiles them for 32-bit Windows: one wrong
# offset, size or value fails the compile, and so the test.
#   cmake -DCXX=... -DHEADER=... -DINCLUDES=a|b -DLAYOUT=... -DCONSTANTS=... -DWORK=... -P check_abi.cmake
string(REPLACE "|" ";" include_dirs "${INCLUDES}")

# The table's lines without comments and blank lines, each a list of its words.
function(read_table path columns out)
  file(STRINGS ${path} lines REGEX "^[^#]")
  set(rows)
  foreach(line ${lines})
    string(REGEX REPLACE "[ \t]+" ";" words "${line}")
    list(LENGTH words n)
    if(NOT n EQUAL columns)
      message(FATAL_ERROR "${path}: expected ${columns} columns: ${line}")
    endif()
    list(JOIN words "|" row)
    list(APPEND rows "${row}")
  endforeach()
  set(${out} "${rows}" PARENT_SCOPE)
endfunction()

set(code "// Generated from tests/abi/layout.txt and constants.txt by check_abi.cmake.\n")
string(APPEND code "#include <stddef.h>\n#include <stdint.h>\n#include \"${HEADER}\"\n\n")
set(count 0)
read_table(${LAYOUT} 4 layout)
foreach(row ${layout})
  string(REPLACE "|" ";" f "${row}")
  list(GET f 0 record)
  list(GET f 1 field)
  list(GET f 2 offset)
  list(GET f 3 size)
  if(field STREQUAL "sizeof")
    string(APPEND code "static_assert(sizeof(${record}) == ${size}, \"sizeof(${record}) is ${size}\");\n")
    math(EXPR count "${count} + 1")
  else()
    string(APPEND code "static_assert(offsetof(${record}, ${field}) == ${offset}, \"${record}.${field} at ${offset}\");\n")
    string(APPEND code "static_assert(sizeof(((${record}*)0)->${field}) == ${size}, \"${record}.${field} has ${size} bytes\");\n")
    math(EXPR count "${count} + 2")
  endif()
endforeach()
read_table(${CONSTANTS} 2 constants)
foreach(row ${constants})
  string(REPLACE "|" ";" f "${row}")
  list(GET f 0 name)
  list(GET f 1 value)
  # Compared as 32-bit patterns, so that 0x80000000 and -1 mean what they say.
  string(APPEND code "static_assert(uint32_t(${name}) == uint32_t(${value}), \"${name} is ${value}\");\n")
  math(EXPR count "${count} + 1")
endforeach()

set(source ${WORK}/abi_check.cpp)
file(WRITE ${source} "${code}")
set(flags -std=c++17 -D_WINDOWS -fsyntax-only)
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
message(STATUS "${count} layout assertions hold")
