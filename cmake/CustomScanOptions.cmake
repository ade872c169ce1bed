# Compiler flags shared by every target of the project.
add_library(customscan_flags INTERFACE)
target_compile_options(customscan_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wno-unused-parameter)
if(CUSTOMSCAN_WARNINGS_AS_ERRORS)
  target_compile_options(customscan_flags INTERFACE -Werror)
endif()

if(CUSTOMSCAN_SANITIZE)
  string(REPLACE ";" "," _cs_sanitizers "${CUSTOMSCAN_SANITIZE}")
  add_compile_options(-fsanitize=${_cs_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${_cs_sanitizers})
endif()

# libFuzzer builds: every library is instrumented for coverage and checked by
# AddressSanitizer and UndefinedBehaviorSanitizer; only the fuzz programs
# themselves link the libFuzzer driver (see fuzz/CMakeLists.txt).
if(CUSTOMSCAN_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "CUSTOMSCAN_BUILD_FUZZERS needs clang (cmake --preset fuzz)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
