# The Debian packages, by components of the installation.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL libraries development)
set(CPACK_PACKAGE_NAME kestova)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package begins its description with its own
set(CPACK_PACKAGE_CONTACT "The Kestova developers <developers@kestova.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)  # on the very same version
foreach(library UdpSocket KestovaUtils KestovaStorage KestovaRecordings)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/${library}")
endforeach()
list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/bindings/c")

set(about
    "Kestova records what a marine radar sends over UDP multicast (image spokes,
ARPA targets, states, AIS, GPS, depth and heading) into self-indexed data
files, compresses them, and plays them back to programs and onto the network.")
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME libkestova0)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_DEPENDS "libcairo2, libpcap0.8")  # loaded when they are used
set(CPACK_DEBIAN_LIBRARIES_DESCRIPTION "recorder and player for marine radar traffic: libraries\n${about}\n
This package has the shared libraries.")
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkestova-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "recorder and player for marine radar traffic: development files\n${about}\n
This package has the headers, what find_package and pkg-config need, the
formats described, and examples.")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS libraries)
if(KESTOVA_TOOL)
  list(APPEND CPACK_COMPONENTS_ALL tool)
  set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kestova)
  set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_TOOL_DESCRIPTION "recorder and player for marine radar traffic: command line\n${about}\n
This package has the command kestova, which records, replays and simulates
radars, shows what is in recordings, and reads and writes captures.")
  set(conffiles "${CMAKE_CURRENT_BINARY_DIR}/conffiles")
  configure_file(debian/conffiles "${conffiles}" COPYONLY)
  if(TARGET kestova_server)
    file(APPEND "${conffiles}" "/etc/default/kestova-serve\n")
  endif()
  set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA "${conffiles}")
  set(CPACK_COMPONENT_TOOL_DEPENDS libraries)
endif()

list(APPEND CPACK_COMPONENTS_ALL python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-kestova)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS python3-numpy)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-matplotlib)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "recorder and player for marine radar traffic: Python\n${about}\n
This package has the Python module kestova, which gives recordings as NumPy
arrays.")
set(CPACK_COMPONENT_PYTHON_DEPENDS libraries)

# The documents that every Debian package has.
set(debian_dir "${CMAKE_CURRENT_BINARY_DIR}/debian")
configure_file(debian/changelog.in "${debian_dir}/changelog" @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/debian/finish.cmake")
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package_doc_dir "${doc_dir}/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  install(FILES debian/copyright DESTINATION "${package_doc_dir}" COMPONENT ${component})
  install(FILES "${debian_dir}/changelog" DESTINATION "${package_doc_dir}" RENAME changelog.Debian
          COMPONENT ${component})
endforeach()
include(CPack)
