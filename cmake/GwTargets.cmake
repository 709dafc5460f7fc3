# Shared compile settings and helpers for the project's targets.

add_library(gw_build_flags INTERFACE)
target_compile_options(gw_build_flags INTERFACE -Wall -Wextra)
# GCC 12 reports std::variant members as "maybe uninitialized" after inlining at -O2 (a known
# false positive); uninitialized reads are caught by the sanitizer build instead.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(gw_build_flags INTERFACE -Wno-maybe-uninitialized)
endif()
if(GW_WERROR)
  target_compile_options(gw_build_flags INTERFACE -Werror)
endif()
if(GW_SANITIZE)
  target_compile_options(gw_build_flags INTERFACE -fsanitize=address,undefined
                                                  -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(gw_build_flags INTERFACE -fsanitize=address,undefined)
endif()
if(GW_FUZZ)
  target_compile_options(gw_build_flags INTERFACE -fsanitize=fuzzer-no-link,address,undefined)
  target_link_options(gw_build_flags INTERFACE -fsanitize=address,undefined)
endif()

# gw_add_library(<name> SOURCES ... DEPS ...)
# One library per folder below src/. DEPS names only the layers below it, so a call into a
# higher layer fails to link.
function(gw_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC gw_build_flags ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
endfunction()

# gw_add_test_dir(<folder> DEPS ...)
# Builds every tests/<folder>/*_test.cpp into one program per folder and registers its cases.
function(gw_add_test_dir folder)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  string(REPLACE "/" "_" exe "${folder}_tests")
  add_executable(${exe} ${sources})
  target_include_directories(${exe} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${exe} PRIVATE gw_build_flags gw_testing ${ARG_DEPS} GTest::gtest GTest::gmock
                                       GTest::gtest_main)
  gtest_discover_tests(${exe} DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES
                       PROPERTIES ENVIRONMENT "GW_SOURCE_DIR=${PROJECT_SOURCE_DIR};GW_BINARY_DIR=${PROJECT_BINARY_DIR}")
endfunction()
