# The functions that declare floors, resources, tests and benches.
#
# A folder of src/ is a floor: one static library tessivane_<name>. The table below says which floors
# it may use. An edge that is not in the table, and an #include that no declared edge leads to, both
# stop the configure step.

set(TESSIVANE_FLOORS
  support platform git sessions rush activity github backend surfaces app)

set(TESSIVANE_MAY_USE_support)
set(TESSIVANE_MAY_USE_platform support)
set(TESSIVANE_MAY_USE_git support)
set(TESSIVANE_MAY_USE_sessions git platform support)
set(TESSIVANE_MAY_USE_rush sessions platform support)
set(TESSIVANE_MAY_USE_activity sessions platform support)
set(TESSIVANE_MAY_USE_github sessions git platform support)
set(TESSIVANE_MAY_USE_backend activity github sessions git platform support)
set(TESSIVANE_MAY_USE_surfaces rush activity github sessions platform support)
set(TESSIVANE_MAY_USE_app surfaces backend github activity rush sessions git platform support)

# The lists of sanitizer suites are collected here, so that they can be built alone.
add_custom_target(tsan_tests)

# tessivane_library(<floor> SOURCES <file>... [DEPENDS <floor>...] [LIBRARIES <target>...])
#
# LIBRARIES are libraries from outside. Whoever uses the floor links them too.
function(tessivane_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS;LIBRARIES")
  _tessivane_no_leftovers("tessivane_library(${name})" "${arg_UNPARSED_ARGUMENTS}")
  if(NOT name IN_LIST TESSIVANE_FLOORS)
    message(FATAL_ERROR "src/${name} is not a floor. The floors are: ${TESSIVANE_FLOORS}")
  endif()
  foreach(floor IN LISTS arg_DEPENDS)
    if(NOT floor IN_LIST TESSIVANE_MAY_USE_${name})
      message(FATAL_ERROR "src/${name} may not depend on ${floor}. "
        "It may use: ${TESSIVANE_MAY_USE_${name}}")
    endif()
  endforeach()

  _tessivane_reachable(reachable ${arg_DEPENDS})
  _tessivane_check_includes(${name} "${reachable}" ${arg_SOURCES})

  # The list file keeps a library legal that has headers only.
  add_library(tessivane_${name} STATIC ${arg_SOURCES} CMakeLists.txt)
  set_target_properties(tessivane_${name} PROPERTIES
    LINKER_LANGUAGE CXX
    TESSIVANE_REACHABLE "${reachable}")
  target_include_directories(tessivane_${name} PUBLIC
    "${PROJECT_SOURCE_DIR}/src" "${TESSIVANE_GENERATED}")
  list(TRANSFORM arg_DEPENDS PREPEND tessivane_)
  target_link_libraries(tessivane_${name} PUBLIC ${arg_DEPENDS} ${arg_LIBRARIES})
endfunction()

# tessivane_resources(<target> FILES <name>...)
#
# Builds text files of resources/ into the target, byte for byte. The header is
# "<floor>/Resources.h"; the file t3-threads.sql becomes the constant resources::t3ThreadsSql.
function(tessivane_resources target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "FILES")
  _tessivane_no_leftovers("tessivane_resources(${target})" "${arg_UNPARSED_ARGUMENTS}")
  string(REGEX REPLACE "^tessivane_" "" floor "${target}")
  set(script "${PROJECT_SOURCE_DIR}/cmake/EmbedResource.cmake")
  set(folder "${TESSIVANE_GENERATED}/${floor}")
  set(declarations "")
  foreach(file IN LISTS arg_FILES)
    set(input "${PROJECT_SOURCE_DIR}/resources/${file}")
    if(NOT EXISTS "${input}" OR IS_DIRECTORY "${input}")
      message(FATAL_ERROR "${target} needs the resource ${input}, which does not exist.")
    endif()
    _tessivane_resource_constant(constant "${file}")
    string(APPEND declarations "extern const std::string_view ${constant};\n")
    set(output "${folder}/${file}.cpp")
    add_custom_command(OUTPUT "${output}"
      COMMAND "${CMAKE_COMMAND}" "-DINPUT=${input}" "-DOUTPUT=${output}"
        "-DCONSTANT=${constant}" "-DHEADER=${floor}/Resources.h" -P "${script}"
      DEPENDS "${input}" "${script}"
      COMMENT "Embedding ${file}"
      VERBATIM)
    target_sources(${target} PRIVATE "${output}")
  endforeach()
  file(CONFIGURE OUTPUT "${folder}/Resources.h" @ONLY CONTENT
"#pragma once

// Text files of resources/, as they are. Made by CMake.

#include <string_view>

namespace tessivane::resources {

@declarations@
}  // namespace tessivane::resources
")
endfunction()

# tessivane_test(<folder> SOURCES <file>... DEPENDS <floor>... [LIBRARIES <target>...] [TSAN])
#
# One test program for a folder of tests/. With TSAN its tests carry the label "tsan" and run under
# the thread sanitizer too.
function(tessivane_test folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "TSAN" "" "SOURCES;DEPENDS;LIBRARIES")
  _tessivane_no_leftovers("tessivane_test(${folder})" "${arg_UNPARSED_ARGUMENTS}")
  if(NOT arg_SOURCES)
    message(STATUS "tests/${folder} has no tests yet")
    return()
  endif()
  set(target tessivane_${folder}_test)
  add_executable(${target} ${arg_SOURCES})
  list(TRANSFORM arg_DEPENDS PREPEND tessivane_)
  target_link_libraries(${target} PRIVATE
    ${arg_DEPENDS} ${arg_LIBRARIES} tessivane_test_helpers GTest::gmock GTest::gtest_main)
  set(properties TIMEOUT 300)
  if(arg_TSAN)
    list(APPEND properties LABELS tsan)
    add_dependencies(tsan_tests ${target})
    set_property(GLOBAL APPEND PROPERTY TESSIVANE_TSAN_TESTS ${folder})
  endif()
  gtest_discover_tests(${target}
    TEST_PREFIX "${folder}/"
    DISCOVERY_TIMEOUT 120
    PROPERTIES ${properties})
endfunction()

# tessivane_bench(<name> SOURCES <file>... DEPENDS <floor>... [LIBRARIES <target>...])
#
# One bench program, tessivane_<name>_bench in the build folder. As a test it runs each bench once, to
# see that it still works; its figures mean something in the preset "bench" only.
function(tessivane_bench name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS;LIBRARIES")
  _tessivane_no_leftovers("tessivane_bench(${name})" "${arg_UNPARSED_ARGUMENTS}")
  set(target tessivane_${name}_bench)
  add_executable(${target} ${arg_SOURCES})
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")
  # What benches share is included as "bench/SampleText.h".
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}")
  list(TRANSFORM arg_DEPENDS PREPEND tessivane_)
  target_link_libraries(${target} PRIVATE
    ${arg_DEPENDS} ${arg_LIBRARIES} tessivane_test_helpers benchmark::benchmark
    benchmark::benchmark_main)
  add_test(NAME bench/${name} COMMAND ${target} --benchmark_min_time=0.001)
  set_tests_properties(bench/${name} PROPERTIES LABELS bench TIMEOUT 600 RUN_SERIAL ON)
endfunction()

# tessivane_fuzz(<name> SOURCES <file>... DEPENDS <floor>...)
#
# One fuzz program, tessivane_<name>_fuzz. What it tries holds for any bytes, so its checks are a
# header that a plain test includes too, as "fuzz/GitChecks.h".
function(tessivane_fuzz name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
  _tessivane_no_leftovers("tessivane_fuzz(${name})" "${arg_UNPARSED_ARGUMENTS}")
  set(target tessivane_${name}_fuzz)
  add_executable(${target} ${arg_SOURCES})
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}")
  list(TRANSFORM arg_DEPENDS PREPEND tessivane_)
  target_link_libraries(${target} PRIVATE ${arg_DEPENDS})
  target_link_options(${target} PRIVATE -fsanitize=fuzzer)
endfunction()

# The floors that the given ones lead to, themselves included.
function(_tessivane_reachable result)
  set(reachable ${ARGN})
  foreach(floor IN LISTS ARGN)
    if(NOT TARGET tessivane_${floor})
      message(FATAL_ERROR "The floor ${floor} must be declared before those that use it.")
    endif()
    get_target_property(further tessivane_${floor} TESSIVANE_REACHABLE)
    list(APPEND reachable ${further})
  endforeach()
  list(REMOVE_DUPLICATES reachable)
  set(${result} "${reachable}" PARENT_SCOPE)
endfunction()

# Stops at the first #include of a floor that is neither the file's own nor reachable.
function(_tessivane_check_includes name reachable)
  list(JOIN TESSIVANE_FLOORS "|" any_floor)
  foreach(file IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH file OUTPUT_VARIABLE path)
    # Read again whenever it changes: an edit must not slip past an earlier configure step.
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${path}")
    # A CMake list would stumble over these characters; no floor has one in its name.
    file(READ "${path}" text)
    string(REGEX REPLACE "[][;\\]" "?" text "\n${text}")
    string(REGEX MATCHALL "\n[ \t]*#[ \t]*include[ \t]*[<\"](\\.\\.|${any_floor})/[^\n]*"
      lines "${text}")
    foreach(line IN LISTS lines)
      string(REGEX MATCH "[<\"](\\.\\.|[a-z]+)/" match "${line}")
      set(floor "${CMAKE_MATCH_1}")
      if(floor STREQUAL name OR floor IN_LIST reachable)
        continue()
      endif()
      _tessivane_line_number(number "${text}" "${line}")
      if(floor STREQUAL "..")
        set(reason "includes are written from src/")
      else()
        set(reason "src/${name} does not stand on ${floor}")
      endif()
      string(STRIP "${line}" line)
      message(FATAL_ERROR "${path}:${number}: ${line}\n${reason}")
    endforeach()
  endforeach()
endfunction()

# The number of the line of a text that both begin with a newline.
function(_tessivane_line_number result text line)
  string(FIND "${text}" "${line}" offset)
  string(SUBSTRING "${text}" 0 ${offset} before)
  string(REGEX REPLACE "[^\n]" "" newlines "${before}")
  string(LENGTH "${newlines}" number)
  math(EXPR number "${number} + 1")
  set(${result} ${number} PARENT_SCOPE)
endfunction()

# t3-threads.sql becomes t3ThreadsSql.
function(_tessivane_resource_constant result file)
  string(REGEX MATCHALL "[A-Za-z0-9]+" words "${file}")
  set(constant "")
  foreach(word IN LISTS words)
    if(NOT constant STREQUAL "")
      string(SUBSTRING "${word}" 0 1 first)
      string(SUBSTRING "${word}" 1 -1 rest)
      string(TOUPPER "${first}" first)
      set(word "${first}${rest}")
    endif()
    string(APPEND constant "${word}")
  endforeach()
  set(${result} "${constant}" PARENT_SCOPE)
endfunction()

function(_tessivane_no_leftovers caller leftovers)
  if(leftovers)
    message(FATAL_ERROR "${caller} does not know: ${leftovers}")
  endif()
endfunction()
