# Warnings are errors everywhere; sanitizer and fuzzer instrumentation are switched on by options
# so that one source tree gives the plain, the sanitized and the fuzzing builds.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Werror)

# Release builds optimise as RelWithDebInfo does (-O2); -O3 costs compile time for no measured gain.
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")

# Clang checks the lock annotations (GUARDED_BY, REQUIRES, ...) of Base/ThreadAnnotations.h.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  add_compile_options(-Wthread-safety)
endif()

if(QUORVANE_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
endif()

if(QUORVANE_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

if(QUORVANE_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "QUORVANE_FUZZ needs clang (libFuzzer): configure with -DCMAKE_CXX_COMPILER=clang++")
  endif()
  # Libraries get coverage instrumentation; each fuzz target links the libFuzzer driver itself.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
endif()

# Adds a library under src/: NAME, its SOURCES and the libraries it DEPENDS on.
# Headers sit beside their sources and are included as "Library/Header.h".
function(quorvane_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS})
  quorvane_precompiled_headers(${name})
endfunction()
