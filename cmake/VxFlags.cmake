# Warnings and sanitizers for everything in this tree; never part of what an application sees.
add_library(vx_flags INTERFACE)
target_compile_options(
  vx_flags
  INTERFACE -Wall -Wextra -Wshadow $<$<COMPILE_LANGUAGE:C>:-Wpedantic>
            $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
option(VX_WERROR "Make warnings errors" OFF)
if(VX_WERROR)
  target_compile_options(vx_flags INTERFACE -Werror)
endif()

option(VX_COVERAGE "Count what is executed" OFF)
if(VX_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

if(VX_SANITIZE)
  add_compile_options(-fsanitize=${VX_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VX_SANITIZE})
  # With a sanitizer's code in between, gcc loses sight of what has been initialised.
  target_compile_options(vx_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  if(VX_SANITIZE MATCHES "thread")
    # The thread sanitizer knows no fences. The simulated camera's ordering comes from mutexes.
    add_compile_definitions(ASIO_DISABLE_FENCED_BLOCK)
  endif()
  if(VX_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
  endif()
  if(VX_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

# Most of what the dev and sanitizer presets compile is not the library. There -g1 is enough, names
# and lines for backtraces without the variables, and speed is worth its compile time only in the
# simulated camera, which feeds the library. The library itself, the benchmarks and the release
# preset keep what their build type says.
add_library(vx_lines INTERFACE) # the simulated camera, fuzz targets
target_compile_options(vx_lines INTERFACE $<$<CONFIG:RelWithDebInfo>:-g1>)
add_library(vx_brief INTERFACE) # programs, which wait for cameras
target_compile_options(vx_brief INTERFACE $<$<CONFIG:RelWithDebInfo>:-g1;-O1>)
add_library(vx_quick INTERFACE) # tests, which run once and are compiled often
target_compile_options(vx_quick INTERFACE $<$<CONFIG:RelWithDebInfo>:-g1;-O0>)
