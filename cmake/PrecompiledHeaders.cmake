# Precompiled headers. The JSON library, GoogleTest and the standard containers make up most of
# each file's compile time; compiling them once per build roughly halves the build. Every library
# and test program reuses one of two headers made here, so all of them share this build's flags.
# QUORVANE_PCH=OFF builds without them (to check that each file includes what it uses).
option(QUORVANE_PCH "Compile the common headers once per build" ON)

set(QUORVANE_COMMON_HEADERS
    <algorithm> <chrono> <cstdint> <functional> <map> <memory> <mutex> <optional> <string>
    <string_view> <utility> <variant> <vector> <nlohmann/json.hpp>)

if(QUORVANE_PCH)
  file(WRITE ${PROJECT_BINARY_DIR}/pch/empty.cpp "")
  add_library(QuorvanePCH OBJECT ${PROJECT_BINARY_DIR}/pch/empty.cpp)
  target_precompile_headers(QuorvanePCH PRIVATE ${QUORVANE_COMMON_HEADERS})
endif()

# Gives `target` the library headers, or the test headers (GoogleTest and GoogleMock besides the
# library headers) when TEST is given.
function(quorvane_precompiled_headers target)
  cmake_parse_arguments(ARG "TEST" "" "" ${ARGN})
  if(NOT QUORVANE_PCH)
    return()
  endif()
  if(NOT ARG_TEST)
    target_precompile_headers(${target} REUSE_FROM QuorvanePCH)
    return()
  endif()
  if(NOT TARGET QuorvaneTestPCH)
    add_library(QuorvaneTestPCH OBJECT ${PROJECT_BINARY_DIR}/pch/empty.cpp)
    target_link_libraries(QuorvaneTestPCH PRIVATE GTest::gtest GTest::gmock)
    target_precompile_headers(QuorvaneTestPCH PRIVATE ${QUORVANE_COMMON_HEADERS}
                              <gtest/gtest.h> <gmock/gmock.h>)
  endif()
  target_precompile_headers(${target} REUSE_FROM QuorvaneTestPCH)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # With the header precompiled, GCC 12 inlines std::string's concatenation differently in a few
    # test files and reports a copy past a string's inline buffer that cannot happen (a known
    # false positive of -Warray-bounds and -Wstringop-overflow). The libraries keep the warnings.
    target_compile_options(${target} PRIVATE -Wno-array-bounds -Wno-stringop-overflow)
  endif()
endfunction()
