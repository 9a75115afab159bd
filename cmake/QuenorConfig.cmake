# find_package(Quenor) defines a target for each library: Quenor::nodemodel, Quenor::timeseries and Quenor::inspect
# are the uppermost ones. They depend on nothing but each other.
include("${CMAKE_CURRENT_LIST_DIR}/QuenorTargets.cmake")

foreach(component IN LISTS Quenor_FIND_COMPONENTS)
  if(TARGET Quenor::${component})
    set(Quenor_${component}_FOUND TRUE)
  elseif(Quenor_FIND_REQUIRED_${component})
    set(Quenor_FOUND FALSE)
    set(Quenor_NOT_FOUND_MESSAGE "There is no library ${component}")
  endif()
endforeach()
