# Builds the small applications against PREFIX by find_package, and runs them.
set(build "${SCRATCH}/build")
run(${CMAKE_COMMAND} -S "${CMAKE_CURRENT_LIST_DIR}/application" -B "${build}" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_PREFIX_PATH=${PREFIX}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
file(STRINGS "${build}/CMakeCache.txt" found REGEX "^KestovaStorage_DIR")
if(NOT found MATCHES "=${PREFIX}/")
  message(FATAL_ERROR "another KestovaStorage was found: ${found}")
endif()
run(${CMAKE_COMMAND} --build "${build}")
run_consumer("${build}")
