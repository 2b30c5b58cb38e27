# Runs before each Debian package is built from its folder: compresses what Debian wants compressed, without times, so
# that the same sources give the same bytes; takes out the search paths that only a tree that may be moved needs.
file(GLOB_RECURSE compressed "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/man1/*.1"
     "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/changelog.Debian" "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/changelog")
foreach(file IN LISTS compressed)
  execute_process(COMMAND gzip -9 -n -f "${file}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(GLOB_RECURSE binaries "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/bin/kestova"
     "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/lib*.so.*")
foreach(file IN LISTS binaries)
  if(NOT IS_SYMLINK "${file}")
    file(RPATH_REMOVE FILE "${file}")
  endif()
endforeach()
