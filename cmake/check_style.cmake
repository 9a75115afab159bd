# Rules of the sources that neither the compiler nor the formatter knows.
# Run as: cmake -DROOT=<root of the sources> -P check_style.cmake

# check(RULE PATTERN PATHS...): no line of the files may match.
function(check rule pattern)
  foreach(path IN LISTS ARGN)
    file(STRINGS "${path}" found REGEX "${pattern}" LIMIT_COUNT 1 ENCODING UTF-8)
    if(NOT found STREQUAL "")
      message(SEND_ERROR "${path}: ${rule}: ${found}")
    endif()
  endforeach()
endfunction()

set(sources)
file(GLOB folders "${ROOT}/*")
list(REMOVE_ITEM folders "${ROOT}/build")
foreach(folder IN LISTS folders)
  file(GLOB_RECURSE found "${folder}/*.h" "${folder}/*.cpp")
  list(APPEND sources ${found})
endforeach()
list(LENGTH sources count)
if(count EQUAL 0)
  message(FATAL_ERROR "No sources below \"${ROOT}\"")
endif()

set(headers ${sources})
list(FILTER headers INCLUDE REGEX "\\.h$")
set(portable ${sources})
list(FILTER portable EXCLUDE REGEX "^${ROOT}/platform/")

string(ASCII 9 tab)
check("a tab" "${tab}" ${sources})
check("asks for the system outside the platform library"
  "(_WIN32|__linux__|__unix__|__APPLE__|_MSC_VER)" ${portable})

# Tests look at the system itself, and the floors of the benchmarks are its bare calls.
list(FILTER portable EXCLUDE REGEX "^${ROOT}/(tests|benchmarks)/")
check("imports a whole namespace" "^ *using namespace" ${portable})
check("a header of the system outside the platform library"
  "# *include *<(windows|winsock2|io|unistd|fcntl|sys/[a-z]+)\\.h>" ${portable})

foreach(path IN LISTS headers)
  file(STRINGS "${path}" guard REGEX "^#pragma once$" ENCODING UTF-8)
  if(guard STREQUAL "")
    message(SEND_ERROR "${path}: a header without #pragma once")
  endif()
endforeach()
message(STATUS "${count} files checked")
