# kestova_flags: what every target of this project is compiled with.
add_library(kestova_flags INTERFACE)
target_compile_options(kestova_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
target_include_directories(kestova_flags INTERFACE "${PROJECT_SOURCE_DIR}")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 warns of overlapping copies inside std::string where there are none (its bug 105651).
  target_compile_options(kestova_flags INTERFACE -Wno-restrict)
endif()
if(KESTOVA_WERROR)
  target_compile_options(kestova_flags INTERFACE -Werror)
endif()
if(KESTOVA_SANITIZE)
  target_compile_options(kestova_flags INTERFACE -fsanitize=${KESTOVA_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all)
  target_link_options(kestova_flags INTERFACE -fsanitize=${KESTOVA_SANITIZE})
  if(KESTOVA_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # std::atomic_thread_fence is not modelled by the thread sanitizer; nothing here uses it.
    target_compile_options(kestova_flags INTERFACE -Wno-tsan)
  endif()
endif()

# kestova_precompile(TARGET header ...): reads these headers once for the whole target where KESTOVA_PCH is on. Builds
# without it see to it that every file includes what it uses.
function(kestova_precompile target)
  if(KESTOVA_PCH)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()
