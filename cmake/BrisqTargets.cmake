# One function per kind of target. A folder without sources yields no target.

# Include path of the sources that may see all of the host: the plug-in never gets it.
function(brisq_see_host target)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()

# The libraries of `ARGN` that exist: a folder may still be empty.
function(brisq_link_existing target)
  foreach(library IN LISTS ARGN)
    if(TARGET ${library})
      target_link_libraries(${target} PRIVATE ${library})
    endif()
  endforeach()
endfunction()

# Reads the headers that most sources of `target` include once, with those named in `ARGN`: half the
# time of a source without optimisation. A build with BRISQ_PCH=OFF, as the release build, shows
# that each source includes what it needs.
function(brisq_read_headers_once target)
  if(BRISQ_PCH)
    target_precompile_headers(${target} PRIVATE ${brisq_common_headers} ${ARGN})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      # g++ 12 warns of bytes behind a temporary std::string here, which it never copies. The
      # release build has both warnings.
      target_compile_options(${target} PRIVATE -Wno-array-bounds -Wno-stringop-overflow)
    endif()
  endif()
endfunction()
set(brisq_common_headers
  <algorithm> <array> <atomic> <chrono> <condition_variable> <exception> <filesystem> <functional>
  <map> <memory> <mutex> <optional> <set> <sstream> <string> <string_view> <thread> <unordered_map>
  <utility> <vector>)

# A shared library of the host. The libraries that it uses stay out of its interface.
function(brisq_host_library name)
  add_library(${name} SHARED ${ARGN})
  brisq_read_headers_once(${name})
  brisq_see_host(${name})
  target_link_libraries(${name} PUBLIC brisq_include)
  target_link_options(${name} PRIVATE ${BRISQ_COMPLETE_LINK})
  # In the build tree too: CMake would else fill the place with colons, for which the loader searches
  # the present directory.
  set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON)
  install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

# One GoogleTest program. Its tests are named PROGRAM/Suite.Test in CTest, so that two folders may have
# suites of one name. WITHOUT_HOST leaves out the test helpers, which link the host's libraries.
# Programs of a higher COST begin first: those with long tests, so that short ones are left for last.
function(brisq_test name)
  cmake_parse_arguments(arg "WITHOUT_HOST" "LABEL;TIMEOUT;COST" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT arg_COST)
    set(arg_COST 1)
  endif()
  add_executable(${name} ${arg_SOURCES})
  brisq_see_host(${name})
  brisq_link_existing(${name} ${arg_LIBRARIES})
  if(NOT arg_WITHOUT_HOST)
    brisq_link_existing(${name} test_support)
  endif()
  target_link_libraries(${name} PRIVATE brisq_include test_places GTest::gmock_main Threads::Threads)
  brisq_read_headers_once(${name} <gmock/gmock.h> <gtest/gtest.h> <fstream>)
  # Loaded at run time.
  if(TARGET email_dovecot AND "brisqpanel" IN_LIST arg_LIBRARIES)
    add_dependencies(${name} email_dovecot)
  endif()
  if(TARGET brisqsqlite AND NOT arg_WITHOUT_HOST)
    add_dependencies(${name} brisqsqlite)
  endif()
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${BRISQ_TEST_OUTPUT_DIRECTORY})
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    TEST_PREFIX ${name}/
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS ${arg_LABEL} COST ${arg_COST})
endfunction()
