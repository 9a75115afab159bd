# What every target of the project has in common.

# A program may want the libraries within a shared one of its own.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

add_library(quenor_settings INTERFACE)
target_compile_features(quenor_settings INTERFACE cxx_std_20)
target_compile_options(quenor_settings INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2
  # GCC's optimiser sees null pointers in the standard library's streams.
  $<$<CXX_COMPILER_ID:Clang>:-Wnull-dereference>)
# GCC 12 sees an overlap in every concatenation of a literal and a string.
target_compile_options(quenor_settings INTERFACE "$<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>")
if(QUENOR_SANITIZE)
  target_compile_options(quenor_settings INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  target_link_options(quenor_settings INTERFACE -fsanitize=address,undefined)
endif()
if(QUENOR_FUZZ)
  target_compile_options(quenor_settings INTERFACE -fsanitize=fuzzer-no-link
    # What is compared teaches the fuzzer little that its first inputs do not hold, at half the speed.
    -fno-sanitize-coverage=trace-cmp)
endif()
if(WIN32)
  # One file that needs no library beyond the system's.
  target_link_options(quenor_settings INTERFACE -static)
endif()

# quenor_library(NAME [INTERNAL] SOURCES... USES...): a static library `quenor_NAME` with its public headers
# below `include/`; it can include the headers of what it USES, of nothing above it. It is installed unless it
# is INTERNAL.
function(quenor_library name)
  cmake_parse_arguments(LIB "INTERNAL" "" "SOURCES;USES" ${ARGN})
  set(target quenor_${name})
  add_library(${target} STATIC ${LIB_SOURCES})
  add_library(Quenor::${name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name} CXX_EXTENSIONS OFF)
  target_include_directories(${target} PUBLIC
    "$<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>" "$<INSTALL_INTERFACE:${QUENOR_INCLUDE_DIR}>"
    PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_libraries(${target} PRIVATE "$<BUILD_INTERFACE:quenor_settings>")
  foreach(used IN LISTS LIB_USES)
    target_link_libraries(${target} PUBLIC quenor_${used})
  endforeach()
  if(NOT LIB_INTERNAL)
    install(TARGETS ${target} EXPORT QuenorTargets
      ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
    install(DIRECTORY include/ DESTINATION "${QUENOR_INCLUDE_DIR}" COMPONENT development)
  endif()
endfunction()
