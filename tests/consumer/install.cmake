# Installs the build into PREFIX, which starts out empty.
include("${CMAKE_CURRENT_LIST_DIR}/run.cmake")
file(REMOVE_RECURSE "${PREFIX}")
run(${CMAKE_COMMAND} --install "${BUILD}" --prefix "${PREFIX}")
