# The installed headers are the public ones, all of them and no others: nothing of the internal rooms gets out.
file(GLOB_RECURSE installed RELATIVE "${PREFIX}/${INCLUDE}" "${PREFIX}/include/*")
list(SORT installed)
list(SORT HEADERS)
if(NOT installed STREQUAL HEADERS)
  message(FATAL_ERROR "installed: ${installed}\nexpected:  ${HEADERS}")
endif()
