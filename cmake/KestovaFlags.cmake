# kestova_flags: what every target of this project is compiled with.
add_library(kestova_flags INTERFACE)
target_compile_options(kestova_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
target_include_directories(kestova_flags INTERFACE "${PROJECT_SOURCE_DIR}")
if(KESTOVA_WERROR)
  target_compile_options(kestova_flags INTERFACE -Werror)
endif()
if(KESTOVA_SANITIZE)
  target_compile_options(kestova_flags INTERFACE -fsanitize=${KESTOVA_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all -g)
  target_link_options(kestova_flags INTERFACE -fsanitize=${KESTOVA_SANITIZE})
  if(KESTOVA_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # std::atomic_thread_fence is not modelled by the thread sanitizer; nothing here uses it.
    target_compile_options(kestova_flags INTERFACE -Wno-tsan)
  endif()
endif()
if(KESTOVA_FUZZ)
  target_compile_options(kestova_flags INTERFACE -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=undefined -g)
  target_link_options(kestova_flags INTERFACE -fsanitize=address,undefined)
endif()
