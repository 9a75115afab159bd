# find_package(Quenor) defines a target for each library, Quenor::nodemodel and Quenor::timeseries being the
# uppermost ones. They depend on nothing but each other.
include("${CMAKE_CURRENT_LIST_DIR}/QuenorTargets.cmake")
