# kestova_library(NAME SOVERSION n VERSION x.y.z HEADERS ... SOURCES ... USES ... [DESCRIPTION text]
#                 [LINKS library ...] [HEADER_STANDARD 17])
#
# Makes, from one list of sources:
#   NAME_objects     the object files, for tests of what the library does not export
#   NAME             the shared library with its SONAME, hidden symbols and an RPATH beside itself
#   Kestova::NAME    its alias, exported for find_package(KestovaStorage)
#   NAME.pc          its pkg-config file
# HEADERS are the public headers, installed below include/kestova/NAME/ and collected, as NAME/header, in the global
# property KESTOVA_PUBLIC_HEADERS. USES names other libraries of this project, LINKS those of the system
# that the library needs inside; whoever links NAME_objects gets them, too. HEADER_STANDARD is the C++ standard that
# the public headers need, 11 where it is not given; global property KESTOVA_HEADER_STANDARD_NAME.
set(KESTOVA_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}/kestova")

function(kestova_library name)
  cmake_parse_arguments(arg "" "SOVERSION;VERSION;DESCRIPTION;HEADER_STANDARD" "HEADERS;SOURCES;USES;LINKS" ${ARGN})

  add_library(${name}_objects OBJECT ${arg_SOURCES} ${arg_HEADERS})
  set_target_properties(${name}_objects PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                                                   VISIBILITY_INLINES_HIDDEN ON)
  target_link_libraries(${name}_objects PRIVATE kestova_flags Threads::Threads ${arg_LINKS})
  if(KESTOVA_FUZZ)
    target_compile_options(${name}_objects PRIVATE -fsanitize=fuzzer-no-link)
  endif()

  add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
  add_library(Kestova::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX SOVERSION ${arg_SOVERSION} VERSION ${arg_VERSION}
                                           INSTALL_RPATH "$ORIGIN")
  target_include_directories(${name} INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                               $<INSTALL_INTERFACE:${KESTOVA_INCLUDE_DIR}>)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:kestova_flags> Threads::Threads)
  # A library with worker threads must not be unmapped under them; and it must name all that it needs.
  target_link_options(${name} PRIVATE -Wl,-z,nodelete)
  if(NOT KESTOVA_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  foreach(linked IN LISTS arg_LINKS)
    target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:${linked}>)
  endforeach()
  foreach(used IN LISTS arg_USES)
    target_link_libraries(${name} PUBLIC ${used})
  endforeach()

  install(TARGETS ${name} EXPORT KestovaTargets
          LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT libraries NAMELINK_COMPONENT development)
  install(FILES ${arg_HEADERS} DESTINATION "${KESTOVA_INCLUDE_DIR}/${name}" COMPONENT development)
  list(TRANSFORM arg_HEADERS PREPEND "${name}/" OUTPUT_VARIABLE public_headers)
  set_property(GLOBAL APPEND PROPERTY KESTOVA_PUBLIC_HEADERS ${public_headers})
  if(arg_HEADER_STANDARD)
    set_property(GLOBAL PROPERTY KESTOVA_HEADER_STANDARD_${name} ${arg_HEADER_STANDARD})
    target_compile_features(${name} INTERFACE cxx_std_${arg_HEADER_STANDARD})
  endif()

  string(JOIN ", " requires ${arg_USES})
  file(RELATIVE_PATH PC_RELATIVE_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  set(PC_NAME ${name})
  set(PC_VERSION ${arg_VERSION})
  set(PC_DESCRIPTION "${arg_DESCRIPTION}")
  set(PC_REQUIRES "${requires}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/library.pc.in" "${PROJECT_BINARY_DIR}/${name}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
          COMPONENT development)
endfunction()
